// What has left by each interface, in the process's event counters. The owner
// "agent/sent/VRF/INTERFACE" counts messages by type,
// "agent/asked/VRF/NEIGHBOR/INTERFACE" the joins and prunes that were for a neighbour.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "engine/Sender.h"
#include "platform/entity/EventCounter.h"
#include "platform/net/VrfName.h"

namespace Agent {

class SentCounters {
 public:
   // Beyond these, what has no counter yet is not counted: neighbours come and go.
   static constexpr size_t maxCounters = 1024;

   // Counts a message that has left. Ignores one without an interface.
   void count( const L3::VrfName& vrf, const Router::Outgoing& message );

 private:
   void add( const std::string& owner, Mox::StringView name, uint64_t count );

   // By owner and name.
   std::map<std::pair<std::string, std::string>, std::unique_ptr<Mox::EventCounter>>
      counters_;
};

}
