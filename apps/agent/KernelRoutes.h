// This host's own unicast routes, read from the kernel: the reverse paths of VRFs
// with `rpf: kernel`.
//
// Read whole at the start, and again when the kernel reports a change: at once, unless
// reading has taken more than a twentieth of the time lately, and after a second at most. Event-loop thread; the loop and clock outlive it.
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
   Vantu::IntfId interface;    // empty: traffic there is discarded
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is directly connected
   bool connected = false;     // made by the kernel for its own address
   uint32_t metric = 0;
   bool operator==( const KernelRoute& ) const = default;
};

// The routes of one table.
using KernelRib = Routing::PrefixMap<KernelRoute>;

// The routes by the number of their table.
using KernelRibs = std::map<uint32_t, KernelRib>;

class KernelRoutes : public Mox::Clock::Notifiee {
 public:
   static constexpr uint32_t mainTable = 254;

   // `changed` is called when the routes have changed.
   KernelRoutes( Mox::Loop& loop, Mox::Clock& clock,
                 std::function<void()> changed );

   // Selects the tables whose routes are kept; none at the start. The kernel is
   // only asked when a table is added. Throws std::system_error; nothing has
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
   double nextRead_ = 0.0;
   std::optional<Netlink::Notifications> notifications_;
};

}
