// What a first hop does for sources that the agent does not know yet (RFC 7761, 4.4.1):
// how many get an entry, and the packets that wait until their route says whether they
// are registered. Event-loop thread only.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "apps/mfib/KernelTable.h"

namespace Forwarding {

class NewSources {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   using Packet = std::vector<uint8_t>;

   static constexpr size_t maxBytes = 1 << 20;  // of all that waits
   static constexpr double maxWait = 1.0;       // s

   void rateIs( unsigned rate ) { rate_ = rate; }
   // May a source on that vif get an entry? At most `rate` a second and vif may.
   bool mayCome( unsigned vif, double now );

   // Keeps a packet; false without room.
   bool keep( const RouteKey& key, Packet packet, double now );
   // Gives up the packets of the routes that `decided` is true of, and those that have
   // waited for too long; `take` gets each, and whether its route decided.
   void release(
      double now, const std::function<bool( const RouteKey& )>& decided,
      const std::function<void( const RouteKey&, Packet&, bool )>& take );
   bool waiting() const { return !packets_.empty(); }

 private:
   struct Waiting {
      double time;
      Packet packet;
   };
   struct Came {
      double since = 0.0;  // s
      unsigned count = 0;
   };

   unsigned rate_ = 1000;
   std::array<Came, kMaxVifs> came_;
   std::map<RouteKey, std::deque<Waiting>> packets_;
   size_t bytes_ = 0;
};

}
