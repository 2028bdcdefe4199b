// A clock that wakes its observers only where something else says so, for a reactor that
// must not see work half done.
#pragma once

#include <functional>

#include "platform/loop/FollowingClock.h"

namespace Router {

class GatedClock : public Mox::FollowingClock {
 public:
   // `open` is asked before observers are woken; where it says false, again in the next
   // pass. `real` outlives this clock.
   GatedClock( Mox::Clock& real, std::function<bool()> open )
      : FollowingClock( real ), open_( std::move( open ) ) {}

 protected:
   void handleDue() override {
      if ( open_() ) FollowingClock::handleDue();
   }

 private:
   std::function<bool()> open_;
};

}
