#include "apps/agent/AgentClock.h"

#include <gtest/gtest.h>

#include "apps/agent/engine/Timer.h"
#include "platform/base/Text.h"
#include "platform/loop/TestClock.h"

namespace Agent {
namespace {

class AgentClockOverReal : public testing::Test {
 protected:
   // Writes down "name at" when it expires.
   std::unique_ptr<Timer> timer( const char* name ) {
      return std::make_unique<Timer>( clock, [this, name] {
         heard.push_back( std::string( name ) + ' ' +
                          Mox::valueToStrep( clock.now() ) );
      } );
   }

   Mox::TestClock real{ 1000.0 };
   AgentClock clock{ real };
   std::vector<std::string> heard;
};

using Heard = std::vector<std::string>;

TEST_F( AgentClockOverReal, FiresEachWakeupAtItsOwnTimeOfTheReplay ) {
   clock.replayFrom( 500 );
   auto late = timer( "late" );
   auto early = timer( "early" );
   auto beyond = timer( "beyond" );
   late->start( 20 );
   early->start( 10 );
   beyond->start( 31 );
   real.runUntil( 2000 );
   EXPECT_EQ( heard, Heard{} ) << "real time does not move a replay";
   clock.advance( 530 );
   EXPECT_EQ( heard, ( Heard{ "early 510", "late 520" } ) );
   clock.advance( 520 );
   EXPECT_EQ( clock.now(), 530 ) << "a replay never goes back";
}

TEST_F( AgentClockOverReal, FiresWhatAWakeupSetsOnTheWay ) {
   clock.replayFrom( 500 );
   auto next = timer( "next" );
   Timer first( clock, [&] { next->start( 3 ); } );
   first.start( 10 );
   clock.advance( 530 );
   EXPECT_EQ( heard, Heard{ "next 513" } );
   first.start( 0 );
   clock.advance( 530 );
   EXPECT_EQ( heard, Heard{ "next 513" } ) << "due at once, its own is not";
   clock.advance( 533 );
   EXPECT_EQ( heard, ( Heard{ "next 513", "next 533" } ) );
}

TEST_F( AgentClockOverReal, GoesLiveWithWhatIsStillSet ) {
   clock.replayFrom( 900 );
   auto due = timer( "due" );
   auto later = timer( "later" );
   auto cancelled = timer( "cancelled" );
   clock.advance( 950 );
   due->start( 10 );
   later->start( 60 );
   cancelled->start( 60 );
   clock.goLive();
   EXPECT_EQ( clock.now(), 1000 );
   EXPECT_EQ( heard, Heard{} ) << "nothing fires inside the call";
   cancelled->cancel();
   real.runPass();
   EXPECT_EQ( heard, Heard{ "due 1000" } ) << "its time of the replay has passed";
   real.runUntil( 1020 );
   EXPECT_EQ( heard, ( Heard{ "due 1000", "later 1010" } ) );
   due->start( 1 );
   real.runUntil( 1021 );
   EXPECT_EQ( heard.back(), "due 1021" );
   EXPECT_EQ( heard.size(), 3U );
}

// Without a replay it is the real clock.
TEST_F( AgentClockOverReal, AnEarlierWakeupReplacesTheOneSetBefore ) {
   auto a = timer( "a" );
   auto b = timer( "b" );
   a->start( 10 );
   b->start( 5 );
   a->extend( 2 );
   b.reset();
   real.runUntil( 1009 );
   EXPECT_EQ( clock.now(), 1009 );
   EXPECT_EQ( heard, Heard{} );
   a->start( 0 );
   real.runPass();
   EXPECT_EQ( heard, Heard{ "a 1009" } );
}

TEST( Timer, MayDestroyItselfAndTakesTheLongerTime ) {
   Mox::TestClock clock;
   std::unique_ptr<Timer> timer;
   int expired = 0;
   timer = std::make_unique<Timer>( clock, [&] {
      timer.reset();
      ++expired;
   } );
   timer->extend( 10 );
   timer->extend( 5 );
   clock.runUntil( clock.now() + 9 );
   EXPECT_EQ( expired, 0 );
   timer->start( 5 );
   clock.runUntil( clock.now() + 4 );
   EXPECT_EQ( expired, 0 );
   clock.runUntil( clock.now() + 1 );
   EXPECT_EQ( expired, 1 );
   EXPECT_EQ( timer, nullptr );
}

}
}
