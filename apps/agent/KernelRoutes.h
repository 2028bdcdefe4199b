// This host's own unicast routes, told by the kernel: the reverse paths of VRFs that
// say `rpf: kernel`.
//
// Read whole at the start, and again when the kernel tells of a change, at most once
// each rereadInterval. Event-loop thread; the loop and clock outlive it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "apps/netlink/Notifications.h"
#include "platform/loop/Clock.h"
#include "platform/net/IntfId.h"
#include "platform/trie/PrefixMap.h"

namespace Agent {

struct KernelRoute {
   Vantu::IntfId interface;    // empty: what goes there is thrown away
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is on the link itself
   bool connected = false;     // made by the kernel with an address of its own
   uint32_t metric = 0;
   bool operator==( const KernelRoute& ) const = default;
};

// The routes of one table.
using KernelRib = Routing::PrefixMap<KernelRoute>;

// By table.
using KernelRibs = std::map<uint32_t, KernelRib>;

class KernelRoutes : public Mox::Clock::Notifiee {
 public:
   static constexpr uint32_t mainTable = 254;
   static constexpr double rereadInterval = 1.0;  // s

   // `changed` is called when routes are others than before.
   KernelRoutes( Mox::Loop& loop, Mox::Clock& clock,
                 std::function<void()> changed );

   // Which tables' routes are kept; none at the start, when the kernel is not asked
   // either, nor is it for fewer than before. Throws std::system_error; nothing has
   // changed then.
   void tablesAre( std::set<uint32_t> tables );

   std::optional<KernelRib::Match> find( uint32_t table,
                                         const Vantu::IpGenAddr& address ) const;

 private:
   void touch();
   void onTime() override;
   void subscribe();
   bool read( const std::set<uint32_t>& tables );
   void ribsAre( KernelRibs ribs );

   Mox::Loop& loop_;
   std::set<uint32_t> tables_;
   std::function<void()> changed_;
   KernelRibs ribs_;
   double lastRead_ = 0.0;
   std::optional<Netlink::Notifications> notifications_;
};

}
