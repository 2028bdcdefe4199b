// The engines' clock: it follows a replay, then real time.
//
// A replay starts as far in the past as its packets span and ends at the present
// instant, so that the times it leaves in the model are honest for every reader.
// Until goLive() the clock moves only by advance(), which fires each wake-up at its
// own time; afterwards it reads and wakes with the real clock.
#pragma once

#include <algorithm>

#include "platform/loop/FollowingClock.h"

namespace Agent {

class AgentClock : public Mox::FollowingClock {
 public:
   // `real` outlives this clock. Starts live.
   using FollowingClock::FollowingClock;

   double now() const override { return live_ ? FollowingClock::now() : now_; }

   // From here on advance() sets the time. Wake-ups keep their times.
   void replayFrom( double time ) {
      live_ = false;
      now_ = time;
   }

   // Moves on to `time` and fires the wake-ups due on the way; never moves back.
   void advance( double time ) {
      while ( nextWakeup() <= time ) {
         now_ = std::max( now_, nextWakeup() );
         fireDue( now_, turn() );
      }
      now_ = std::max( now_, time );
   }

   void goLive() {
      live_ = true;
      handleNextWakeup();
   }

 protected:
   void handleNextWakeup() override {
      if ( live_ ) FollowingClock::handleNextWakeup();
   }

 private:
   bool live_ = true;
   double now_ = 0.0;
};

}
