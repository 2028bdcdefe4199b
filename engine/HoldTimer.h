// The expiry timer of a downstream state, and the form in which a process leaves
// its timers to the next one. Each is given in seconds from the last message that
// set it. That message's time is in the tables already, so a refresh changes
// nothing here.
#pragma once

#include "engine/Timer.h"
#include "published/Records.h"

namespace Router {

// Returns the timers that a former process left of a record; all 0 for an unknown
// record.
using KeptTimers =
   std::function<Published::Downstream( const Routing::Pim::RouteIntfKey& )>;

class PIMSM_API HoldTimer {
 public:
   // The hold time of a state after a restart when it is unknown (RFC 7761, 4.11).
   static constexpr double defaultHoldtime = 210.0;  // s

   HoldTimer( Mox::Clock& clock, std::function<void()> expired )
      : timer_( clock, std::move( expired ) ) {}

   // A message gave the state this hold time; see Timer.
   void start( double holdtime ) {
      timer_.start( holdtime );
      holdtime_ = holdtime;
   }
   void extend( double holdtime ) {
      holdtime_ = timer_.extend( holdtime ) ? holdtime : timer_.left();
   }
   // A message came that does not change the state.
   void keep() { holdtime_ = timer_.left(); }
   // Resumes a former process's timer: the last message came at `received`; hold
   // time 0 means unknown.
   void adopt( double received, double holdtime );
   void cancel() { timer_.cancel(); }

   // Seconds from the last message to the state's end; 0 without a state.
   double holdtime() const { return timer_.running() ? holdtime_ : 0.0; }
   double now() const { return timer_.clock()->now(); }

 private:
   Timer timer_;
   double holdtime_ = 0.0;
};

}
