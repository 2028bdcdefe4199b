// What keeps a downstream state alive, and how a process leaves its timers to the next
// one: each as seconds from the last message that set it, since that message's time is in
// the tables already and a refresh then changes nothing here.
#pragma once

#include "engine/Timer.h"
#include "published/Records.h"

namespace Router {

// What a former process left of the timers of a record; of one that it does not know, all
// are 0.
using KeptTimers =
   std::function<Published::Downstream( const Routing::Pim::RouteIntfKey& )>;

class PIMSM_API HoldTimer {
 public:
   // Of a state whose hold time is not known after a restart (RFC 7761, 4.11).
   static constexpr double defaultHoldtime = 210.0;  // s

   HoldTimer( Mox::Clock& clock, std::function<void()> expired )
      : timer_( clock, std::move( expired ) ) {}

   // A message says how long the state lives; see Timer.
   void start( double holdtime ) {
      timer_.start( holdtime );
      holdtime_ = holdtime;
   }
   void extend( double holdtime ) {
      holdtime_ = timer_.extend( holdtime ) ? holdtime : timer_.left();
   }
   // A message came that changes nothing.
   void keep() { holdtime_ = timer_.left(); }
   // As a former process held the state: the last message came at `received`; hold time 0
   // is not known.
   void adopt( double received, double holdtime );
   void cancel() { timer_.cancel(); }

   // Seconds that the state lives from its last message on; 0: there is none.
   double holdtime() const { return timer_.running() ? holdtime_ : 0.0; }
   double now() const { return timer_.clock()->now(); }

 private:
   Timer timer_;
   double holdtime_ = 0.0;
};

}
