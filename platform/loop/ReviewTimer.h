// A rate limit for reviews: a bucket of credits decides how long the next review
// waits.
//
// The bucket is full at start and again after each whole fill interval. A review
// asked for with a credit left spends it and comes after the minimum delay; without
// one it comes after the maximum delay. No review comes later than the request plus
// the maximum delay.
//
// The timer wakes an observer of a clock that its owner shares: the owner may bring
// the wake-up forward, to now, to resume a review that it interrupted. So the timer
// keeps its own due time and sets the observer to the earlier of the two. The owner
// begins its onTime() with handleWakeup():
//
//    void onTime() override {
//       timer.handleWakeup();
//       doReview();
//    }
//
// Times are seconds on the observer's clock. Event-loop thread only.
#pragma once

#include <cstdint>

#include "platform/base/Export.h"
#include "platform/loop/Clock.h"

namespace Mox {

class PIMSM_API ReviewTimer {
 public:
   // The observer must outlive the timer; once its clock is gone the timer does
   // nothing. REQUIRES: fillInterval above 0, no delay below 0.
   ReviewTimer( Clock::Notifiee& watcher, double fillInterval, uint32_t maxCredits,
                float minDelay, float maxDelay );
   ReviewTimer( const ReviewTimer& ) = delete;
   ReviewTimer& operator=( const ReviewTimer& ) = delete;

   // Schedules the next review unless one is pending.
   void doUpdateNextReview();

   // From doUpdateNextReview() to the wake-up at nextReviewTime().
   bool reviewPending() const { return nextReviewTime_ != Clock::never; }
   double nextReviewTime() const { return nextReviewTime_; }

   // REQUIRES: called by the observer's onTime(), before its review. Returns true
   // when the pending review is due, and clears it. Otherwise the wake-up was the
   // owner's, and the timer's own is set again.
   bool handleWakeup();

   // When the last review was completed; `never` before the first.
   double lastReviewTime() const { return lastReviewTime_; }
   void lastReviewTimeIs( double time ) { lastReviewTime_ = time; }

   uint32_t credits() const { return credits_; }

 private:
   void refill( double now );
   void wake();

   Clock::Notifiee& watcher_;
   double fillInterval_;
   uint32_t maxCredits_;
   float minDelay_;
   float maxDelay_;
   uint32_t credits_;
   double lastFillTime_;
   double nextReviewTime_ = Clock::never;
   double lastReviewTime_ = Clock::never;
};

}
