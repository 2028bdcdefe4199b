// Entries that need a closer look than the kernel gives by itself: it tells of packets on
// a wrong interface each 3 s an entry, and its counters are read each second.
//
//    made()    the entry is new, or takes its packets from another interface: its
//              counters are read often until the first has come, so that the agent knows
//              that the source's tree brings some
//    doubled() packets came in by an interface that the entry sends out of, so two routers
//              forward onto that link: the entry is made anew, which makes the kernel tell
//              again, at growing intervals, until the agent has changed it
//
// Destroyed before its constructor's arguments. Event-loop thread only.
#pragma once

#include <map>

#include "apps/mfib/KernelTable.h"
#include "platform/loop/Clock.h"

namespace Forwarding {

class CloseLook : private Mox::Clock::Notifiee {
 public:
   using RouteKey = Routing::Pim::RouteKey;

   static constexpr double readInterval = 0.05;  // s
   static constexpr double readTime = 2.0;       // s; then the regular counters do
   static constexpr double firstWait = 0.1;      // s, doubled each time
   static constexpr double lastWait = 1.6;       // s; then the kernel's own 3 s do
   static constexpr size_t maxEntries = 256;     // of each kind; others do without

   // `renew` makes the entry anew. `flows` gets the counters of one with packets.
   CloseLook( const KernelTable& kernel, Mox::Clock& clock,
              std::function<void( const RouteKey& )> renew,
              std::function<void( const StandingEntry& )> flows );

   void made( const RouteKey& key );
   void doubled( const RouteKey& key );
   // The entry has changed, or has gone.
   void forget( const RouteKey& key );

 private:
   struct Young {
      double until;  // s
      uint64_t packets;
   };
   struct Doubled {
      double due, wait;  // s
   };

   void onTime() override;
   double readYoung( double now );
   double renewDoubled( double now );

   const KernelTable& kernel_;
   std::function<void( const RouteKey& )> renew_;
   std::function<void( const StandingEntry& )> flows_;
   std::map<RouteKey, Young> young_;
   std::map<RouteKey, Doubled> doubled_;
};

}
