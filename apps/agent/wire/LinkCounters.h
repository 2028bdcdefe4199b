// What has come and left by each interface, in the process's event counters. The owners
// "agent/received/VRF/INTERFACE" and "agent/sent/VRF/INTERFACE" count messages by type,
// "agent/refused/VRF/INTERFACE" by reason those, or parts of them, that changed nothing,
// "agent/asked/VRF/NEIGHBOR/INTERFACE" the joins and prunes that were for a neighbour.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "engine/Refusal.h"
#include "engine/Sender.h"
#include "platform/entity/EventCounter.h"
#include "platform/net/VrfName.h"

namespace Agent {

class LinkCounters {
 public:
   // Beyond these, what has no counter yet is not counted: neighbours come and go.
   static constexpr size_t maxLinkCounters = 4096;
   static constexpr size_t maxNeighborCounters = 1024;

   void received( const L3::VrfName& vrf, Vantu::IntfId interface,
                  const Router::Message& message );
   void refused( const L3::VrfName& vrf, Vantu::IntfId interface,
                 Router::Refusal reason );
   // A message that has left. Ignores one without an interface.
   void sent( const L3::VrfName& vrf, const Router::Outgoing& message );

 private:
   enum What { in, out, none };
   struct Key {
      What what;
      L3::VrfName vrf;
      Vantu::IntfId interface;
      Mox::StringView name;  // the type or reason; lives for ever
      auto operator<=>( const Key& ) const = default;
   };
   using Counter = std::unique_ptr<Mox::EventCounter>;

   void count( const Key& key );
   void asked( const std::string& owner, Mox::StringView name, uint64_t count );

   std::map<Key, Counter> links_;
   std::map<std::pair<std::string, std::string>, Counter> asked_;
};

}
