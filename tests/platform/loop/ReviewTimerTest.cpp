#include "platform/loop/ReviewTimer.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/loop/TestClock.h"

namespace Mox {
namespace {

constexpr float kMin = 0.25F;
constexpr float kMax = 2.0F;
constexpr double kFill = 16.0;

// Owner of a timer as its users are: one shared observer, sliced reviews.
class Reviewer : public Clock::Notifiee {
 public:
   explicit Reviewer( TestClock& clock )
      : Notifiee( &clock ), timer( *this, kFill, 4, kMin, kMax ) {}

   void onTime() override {
      bool due = timer.handleWakeup();
      pendingInReview = timer.reviewPending();
      ( due ? reviews : slices ).push_back( clock()->now() );
   }

   ReviewTimer timer;
   std::vector<double> reviews;
   std::vector<double> slices;
   bool pendingInReview = false;
};

class ReviewTimerTest : public testing::Test {
 protected:
   using Times = std::vector<double>;

   // Asks for a review now and runs it; returns how long it waited.
   double delayOfOne() {
      double asked = clock.now();
      r.timer.doUpdateNextReview();
      clock.runUntil( asked + 3 );
      return r.reviews.back() - asked;
   }

   TestClock clock{ 100.0 };
   Reviewer r{ clock };
};

TEST_F( ReviewTimerTest, FourCreditsBuyTheMinimumThenComesTheMaximum ) {
   for ( int i = 0; i < 4; ++i ) EXPECT_EQ( delayOfOne(), 0.25 ) << i;
   EXPECT_EQ( delayOfOne(), 2.0 );
   EXPECT_EQ( r.reviews.size(), 5u );
}

TEST_F( ReviewTimerTest, RefillsAfterWholeIntervalsCountedFromTheStart ) {
   for ( int i = 0; i < 5; ++i ) delayOfOne();
   // A single interval since the start, though the last request was just now.
   clock.nowIs( 115.9 );
   EXPECT_EQ( delayOfOne(), 2.0 );
   // Two intervals ended, the last at 132.
   clock.nowIs( 134.0 );
   for ( int i = 0; i < 4; ++i ) EXPECT_EQ( delayOfOne(), 0.25 ) << i;
   EXPECT_EQ( delayOfOne(), 2.0 ) << "credits do not add up over intervals";
   // The next one ended at 148, whenever the bucket was last asked.
   EXPECT_EQ( clock.now(), 149.0 );
   EXPECT_EQ( delayOfOne(), 0.25 );
}

TEST_F( ReviewTimerTest, PendingFromTheRequestUntilTheWakeup ) {
   EXPECT_FALSE( r.timer.reviewPending() );
   r.timer.doUpdateNextReview();
   EXPECT_TRUE( r.timer.reviewPending() );
   clock.advance( 0.125 );
   r.timer.doUpdateNextReview();  // neither postpones nor spends
   EXPECT_EQ( r.timer.credits(), 3u );
   r.pendingInReview = true;
   clock.runUntil( 105 );
   EXPECT_FALSE( r.pendingInReview );
   EXPECT_EQ( r.reviews, Times{ 100.25 } );
}

// An earlier wake-up of the owner, set before or after the request.
TEST_F( ReviewTimerTest, TheOwnersSlicesLeaveTheTimersOwnDueTime ) {
   r.wakeupTimeIs( clock.now() );
   r.timer.doUpdateNextReview();
   clock.runPass();
   clock.advance( 0.125 );
   r.wakeupTimeIs( clock.now() );
   clock.runPass();
   EXPECT_EQ( r.slices, ( Times{ 100.0, 100.125 } ) );
   EXPECT_TRUE( r.timer.reviewPending() );
   clock.runUntil( 105 );
   EXPECT_EQ( r.reviews, Times{ 100.25 } );
}

TEST( ReviewTimerDelays, NeverLaterThanRequestPlusMaximum ) {
   TestClock clock( 0.0 );
   Reviewer owner( clock );
   ReviewTimer swapped( owner, 1.0, 4, 5.0F, 0.5F );
   swapped.doUpdateNextReview();
   EXPECT_EQ( swapped.nextReviewTime(), 0.5 );
}

}
}
