#include "platform/loop/ReviewTimer.h"

#include <algorithm>
#include <cmath>

#include "platform/base/Assert.h"

namespace Mox {

ReviewTimer::ReviewTimer( Clock::Notifiee& watcher, double fillInterval,
                          uint32_t maxCredits, float minDelay, float maxDelay )
   : watcher_( watcher ),
     fillInterval_( fillInterval ),
     maxCredits_( maxCredits ),
     minDelay_( minDelay ),
     maxDelay_( maxDelay ),
     credits_( maxCredits ) {
   MOX_ASSERT( fillInterval > 0 );
   MOX_ASSERT( minDelay >= 0 && maxDelay >= 0 );
   MOX_ASSERT( watcher.clock() != nullptr );
   lastFillTime_ = watcher.clock()->now();
}

void ReviewTimer::doUpdateNextReview() {
   if ( reviewPending() || watcher_.clock() == nullptr ) return;
   double now = watcher_.clock()->now();
   refill( now );
   float delay = maxDelay_;
   if ( credits_ > 0 ) {
      --credits_;
      delay = std::min( minDelay_, maxDelay_ );
   }
   nextReviewTime_ = now + static_cast<double>( delay );
   wake();
}

bool ReviewTimer::handleWakeup() {
   if ( !reviewPending() || watcher_.clock() == nullptr ) return false;
   if ( nextReviewTime_ <= watcher_.clock()->now() ) {
      nextReviewTime_ = Clock::never;
      return true;
   }
   wake();
   return false;
}

// Whole intervals only: a request in the middle of one does not start it anew.
void ReviewTimer::refill( double now ) {
   double intervals = std::floor( ( now - lastFillTime_ ) / fillInterval_ );
   if ( intervals < 1 ) return;
   lastFillTime_ += intervals * fillInterval_;
   credits_ = maxCredits_;
}

void ReviewTimer::wake() {
   watcher_.wakeupTimeIs( std::min( watcher_.wakeupTime(), nextReviewTime_ ) );
}

}
