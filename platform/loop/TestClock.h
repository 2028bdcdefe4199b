// A clock that moves, and runs passes, only when told. A replay also uses it and
// sets it to the times of its record.
#pragma once

#include "platform/loop/Clock.h"

namespace Mox {

class PIMSM_API TestClock : public Clock {
 public:
   explicit TestClock( double now = 1000.0 ) : now_( now ) {}

   // Moves the clock by the step after each reading.
   double now() const override;

   // REQUIRES: not before now.
   void nowIs( double time );
   void advance( double seconds ) { nowIs( now_ + seconds ); }

   // Seconds by which every reading of now() moves the clock; 0 at start.
   void stepIs( double seconds ) { step_ = seconds; }

   // One pass of a loop: fires the wake-ups due at its start, once each, in order
   // of time, ties in order of setting. True when one was due.
   bool runPass();

   // Moves from wake-up to wake-up, a pass each, until none is due up to `time`,
   // where the clock then stands. Does not end while an observer keeps setting its
   // wake-up to now.
   void runUntil( double time );

 private:
   mutable double now_;
   double step_ = 0.0;
};

}
