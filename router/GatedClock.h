// A clock that wakes its observers only while its gate is open, for a reactor that
// must not see unfinished work.
#pragma once

#include <functional>

#include "platform/loop/FollowingClock.h"

namespace Router {

class GatedClock : public Mox::FollowingClock {
 public:
   // `open` is asked before observers are woken; while it returns false, it is
   // asked again in each pass. `real` outlives this clock.
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
