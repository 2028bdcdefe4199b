#include "platform/loop/TestClock.h"

#include <algorithm>

#include "platform/base/Assert.h"

namespace Mox {

double TestClock::now() const {
   double time = now_;
   now_ += step_;
   return time;
}

void TestClock::nowIs( double time ) {
   MOX_ASSERT( time >= now_ );
   now_ = time;
}

bool TestClock::runPass() {
   bool due = nextWakeup() <= now_;
   fireDue( now_, turn() );
   return due;
}

void TestClock::runUntil( double time ) {
   while ( nextWakeup() <= std::max( time, now_ ) ) {
      now_ = std::max( now_, nextWakeup() );
      runPass();
   }
   now_ = std::max( now_, time );
}

}
