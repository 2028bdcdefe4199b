#include "platform/loop/ReviewTimer.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/loop/TestClock.h"

namespace Mox {
namespace {

using Times = std::vector<double>;

// A timer's owner as in real use: one shared observer, sliced reviews.
class Reviewer : public Clock::Notifiee {
 public:
   explicit Reviewer( TestClock& clock ) : Notifiee( &clock ) {}
   void onTime() override {
      bool due = timer.handleWakeup();
      pendingInReview = timer.reviewPending();
      ( due ? reviews : slices ).push_back( clock()->now() );
   }

   ReviewTimer timer{ *this, 16.0, 4, 0.25F, 2.0F };
   Times reviews, slices;
   bool pendingInReview = true;
};

class ReviewTimerTest : public testing::Test {
 protected:
   // Requests that many reviews, each after the one before has run, and returns
   // their delays.
   Times delaysOf( int count ) {
      Times delays;
      while ( count-- > 0 ) {
         double asked = clock.now();
         r.timer.doUpdateNextReview();
         clock.runUntil( asked + 3 );
         delays.push_back( r.reviews.back() - asked );
      }
      return delays;
   }

   TestClock clock{ 100.0 };
   Reviewer r{ clock };
};

TEST_F( ReviewTimerTest, CreditsBuyTheMinimumAndComeBackByWholeIntervals ) {
   const Times fourAndOne = { 0.25, 0.25, 0.25, 0.25, 2.0 };
   EXPECT_EQ( delaysOf( 5 ), fourAndOne );
   EXPECT_EQ( r.reviews.size(), 5u );
   // A single interval since the start, though the last request was just now.
   clock.nowIs( 115.9 );
   EXPECT_EQ( delaysOf( 1 ), Times{ 2.0 } );
   // Two intervals ended, the last at 132.
   clock.nowIs( 134.0 );
   EXPECT_EQ( delaysOf( 5 ), fourAndOne );
   // The next interval ended at 148, whenever the bucket was last checked.
   EXPECT_EQ( clock.now(), 149.0 );
   EXPECT_EQ( delaysOf( 1 ), Times{ 0.25 } );
   clock.nowIs( 165.0 );
   EXPECT_EQ( delaysOf( 5 ), fourAndOne ) << "credits do not add up";
}

// Also with earlier wake-ups of the owner, set before or after the request.
TEST_F( ReviewTimerTest, PendingFromTheRequestUntilTheWakeup ) {
   EXPECT_FALSE( r.timer.reviewPending() );
   r.wakeupTimeIs( clock.now() );
   r.timer.doUpdateNextReview();
   EXPECT_TRUE( r.timer.reviewPending() );
   clock.runPass();
   clock.advance( 0.125 );
   r.wakeupTimeIs( clock.now() );
   r.timer.doUpdateNextReview();  // neither postpones nor spends
   EXPECT_EQ( r.timer.credits(), 3u );
   clock.runPass();
   EXPECT_EQ( r.slices, ( Times{ 100.0, 100.125 } ) );
   EXPECT_TRUE( r.pendingInReview );
   clock.runUntil( 105 );
   EXPECT_EQ( r.reviews, Times{ 100.25 } );
   EXPECT_FALSE( r.pendingInReview );
}

TEST_F( ReviewTimerTest, NeverLaterThanRequestPlusMaximum ) {
   ReviewTimer swapped( r, 1.0, 4, 5.0F, 0.5F );
   swapped.doUpdateNextReview();
   EXPECT_EQ( swapped.nextReviewTime(), 100.5 );
}

}
}
