#include "apps/agent/AgentClock.h"
#include "apps/config/RouterNames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "engine/Timer.h"
#include "platform/loop/TestClock.h"

namespace Agent {
namespace {

class AgentClockOverReal : public testing::Test {
 protected:
   // Notes "name at" when it expires.
   std::unique_ptr<Timer> timer( const char* name, double seconds ) {
      auto out = std::make_unique<Timer>( clock, [this, name] {
         heard += fmt::format( "{} {}, ", name, clock.now() );
      } );
      out->start( seconds );
      return out;
   }
   // The notes since the last call.
   std::string news() { return std::exchange( heard, "" ); }

   Mox::TestClock real{ 1000.0 };
   AgentClock clock{ real };
   std::string heard;
};

TEST_F( AgentClockOverReal, FiresEachWakeupAtItsOwnTimeOfTheReplay ) {
   clock.replayFrom( 500 );
   auto late = timer( "late", 20 );
   auto early = timer( "early", 10 );
   auto beyond = timer( "beyond", 31 );
   auto next = timer( "next", Timer::never );
   Timer first( clock, [&] { next->start( 3 ); } );
   first.start( 11 );
   real.runUntil( 2000 );
   EXPECT_EQ( news(), "" ) << "real time does not move a replay";
   clock.advance( 530 );
   EXPECT_EQ( news(), "early 510, next 514, late 520, " );
   clock.advance( 520 );
   EXPECT_EQ( clock.now(), 530 ) << "a replay never goes back";
   beyond.reset();
   first.start( 0 );
   clock.advance( 530 );
   EXPECT_EQ( news(), "" ) << "due at once, its own is not";
   clock.advance( 533 );
   EXPECT_EQ( news(), "next 533, " );
}

TEST_F( AgentClockOverReal, GoesLiveWithWhatIsStillSet ) {
   clock.replayFrom( 950 );
   auto due = timer( "due", 10 );
   auto later = timer( "later", 60 );
   auto cancelled = timer( "cancelled", 60 );
   clock.goLive();
   EXPECT_EQ( clock.now(), 1000 );
   EXPECT_EQ( news(), "" ) << "nothing fires inside the call";
   cancelled->cancel();
   real.runPass();
   EXPECT_EQ( news(), "due 1000, " ) << "its time of the replay has passed";
   real.runUntil( 1020 );
   EXPECT_EQ( news(), "later 1010, " );
   due->start( 1 );
   real.runUntil( 1021 );
   EXPECT_EQ( news(), "due 1021, " );
}

// Without a replay it is the real clock.
TEST_F( AgentClockOverReal, AnEarlierWakeupReplacesTheOneSetBefore ) {
   auto a = timer( "a", 10 );
   auto b = timer( "b", 5 );
   a->extend( 2 );
   b.reset();
   real.runUntil( 1009 );
   EXPECT_EQ( clock.now(), 1009 );
   EXPECT_EQ( news(), "" );
   a->start( 0 );
   real.runPass();
   EXPECT_EQ( news(), "a 1009, " );
   a = std::make_unique<Timer>( clock, [&] { a.reset(); } );
   a->start( 1 );
   real.runUntil( 1010 );
   EXPECT_EQ( a, nullptr ) << "it may destroy itself";
}

}
}
