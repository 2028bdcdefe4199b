// The expiry timer of a downstream state, and the form in which a process leaves
// its timers to the next one. The hold time counts from the last message, whose
// time is in the tables already, so a refresh changes nothing there. A plain value:
// its owner checks whether it is over. Times in seconds on the engines' clock.
#pragma once

#include <functional>

#include "engine/Timer.h"
#include "published/Records.h"

namespace Router {

// Returns the timers that a former process left of a record; all 0 for an unknown
// record.
using KeptTimers =
   std::function<Published::Downstream( const Routing::Pim::RouteIntfKey& )>;

class HoldTimer {
 public:
   // The hold time of a state after a restart when it is unknown (RFC 7761, 4.11).
   static constexpr double defaultHoldtime = 210.0;

   // A message gave the state this hold time; infinity: for ever.
   void start( double now, double holdtime ) {
      until_ = now + holdtime;
      holdtime_ = holdtime;
   }
   // As start(), unless that would bring the end forward (RFC 7761: "set to the maximum of
   // its current value and the HoldTime").
   void extend( double now, double holdtime ) {
      if ( running() && until_ >= now + holdtime ) return keep( now );
      start( now, holdtime );
   }
   // A message came that does not change the state.
   void keep( double now ) { holdtime_ = until_ - now; }
   // Resumes a former process's timer: the last message came at `received`; hold
   // time 0 means unknown.
   void adopt( double now, double received, double holdtime ) {
      const double until = received + holdtime;
      until_ =
         holdtime > 0.0 ? Timer::resumed( now, until ) : now + defaultHoldtime;
      holdtime_ = until_ == until ? holdtime : until_ - received;
   }
   void cancel() { until_ = 0.0; }

   // The time when the state is over; never without a state.
   double until() const { return running() ? until_ : Timer::never; }
   // Seconds from the last message to the state's end; 0 without a state.
   double holdtime() const { return running() ? holdtime_ : 0.0; }

 private:
   bool running() const { return until_ != 0.0; }

   double until_ = 0.0;
   double holdtime_ = 0.0;
};

}
