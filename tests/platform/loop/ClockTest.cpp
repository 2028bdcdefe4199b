#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "platform/base/String.h"
#include "platform/loop/TestClock.h"

namespace Mox {
namespace {

class Observer : public Clock::Notifiee {
 public:
   Observer( Clock& clock, char name, String& calls )
      : Notifiee( &clock ), name_( name ), calls_( calls ) {}
   void onTime() override {
      calls_ += name_;
      if ( act ) act();
   }
   std::function<void()> act;

 private:
   char name_;
   String& calls_;
};

class ClockPass : public testing::Test {
 protected:
   TestClock clock{ 10.0 };
   String calls;
   Observer a{ clock, 'a', calls }, b{ clock, 'b', calls }, c{ clock, 'c', calls };
};

TEST_F( ClockPass, FiresDueOnesOnceInOrderOfTimeThenOfSetting ) {
   c.wakeupTimeIs( 11 );
   b.wakeupTimeIs( 11 );
   a.wakeupTimeIs( 10.5 );
   b.wakeupTimeIs( 11 );  // unchanged: keeps its place
   EXPECT_FALSE( clock.runPass() );
   clock.nowIs( 10.5 );
   EXPECT_TRUE( clock.runPass() );
   EXPECT_EQ( calls, "a" );
   clock.nowIs( 20 );
   clock.runPass();
   clock.runPass();
   EXPECT_EQ( calls, "acb" );
   EXPECT_EQ( clock.nextWakeup(), Clock::never );
   // A wake-up that is due at once fires in the next pass.
   a.wakeupTimeIs( -Clock::never );
   b.wakeupTimeIs( 20 );
   a.act = [this] { a.wakeupTimeIs( clock.now() ); };
   clock.runPass();
   EXPECT_EQ( calls, "acbab" );
   clock.runPass();
   EXPECT_EQ( calls, "acbaba" );
}

TEST_F( ClockPass, AnObserverMovesDetachesAndAttachesOthers ) {
   auto d = std::make_unique<Observer>( clock, 'd', calls );
   std::unique_ptr<Observer> late;
   for ( Observer* o : { &a, &b, &c, d.get() } ) o->wakeupTimeIs( 10 );
   a.act = [&] {
      b.wakeupTimeIs( 12 );
      c.wakeupTimeIs( 9 );
      d.reset();
      late = std::make_unique<Observer>( clock, 'l', calls );
      late->wakeupTimeIs( 8 );
   };
   clock.runPass();
   EXPECT_EQ( calls, "a" );
   clock.runPass();
   EXPECT_EQ( calls, "alc" );
   late->act = [&] { late.reset(); };
   late->wakeupTimeIs( 11 );
   clock.runUntil( 12 );
   EXPECT_EQ( calls, "alclb" ) << "one may destroy itself";
}

TEST_F( ClockPass, WhatAnObserverThrowsLeavesTheOthersDue ) {
   a.wakeupTimeIs( 10 );
   b.wakeupTimeIs( 10 );
   a.act = [] { throw std::runtime_error( "failed" ); };
   EXPECT_THROW( clock.runPass(), std::runtime_error );
   clock.runPass();
   EXPECT_EQ( calls, "ab" );
}

TEST( ClockLifetime, ObserversOutliveTheirClock ) {
   String calls;
   auto clock = std::make_unique<TestClock>();
   Observer a( *clock, 'a', calls );
   a.wakeupTimeIs( 5000 );
   clock.reset();
   EXPECT_EQ( a.clock(), nullptr );
   a.wakeupTimeIs( 1 );
   EXPECT_EQ( a.wakeupTime(), Clock::never );
}

}
}
