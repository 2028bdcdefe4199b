#include "apps/agent/engine/DownstreamJoin.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/MachineRun.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Test::Vrf;

constexpr double kForever = Timer::never;

struct Step {
   double at;
   enum { join, prune } what;
   double seconds;  // hold time, or how long others may override
};

struct Row {
   const char* name;
   std::vector<Step> steps;
   const char* history;
};

std::ostream& operator<<( std::ostream& out, const Row& row ) {
   return out << row.name;
}

// RFC 7761, figures 1 and 2, state by event; what a timer does later shows which
// timers the event set.
const Row kRows[] = {
   // NoInfo
   { "NoInfoJoin", { { 0, Step::join, 210 } }, "0 joined, 210 noInfo" },
   { "NoInfoPrune", { { 0, Step::prune, 3 } }, "" },
   { "NoInfoJoinOfNoTime", { { 0, Step::join, 0 } }, "0 joined, 0 noInfo" },
   { "NoInfoJoinForEver", { { 0, Step::join, kForever } }, "0 joined" },
   // Join
   { "JoinedJoinExtends",
     { { 0, Step::join, 210 }, { 100, Step::join, 210 } },
     "0 joined, 310 noInfo" },
   { "JoinedJoinNeverShortens",
     { { 0, Step::join, 210 }, { 100, Step::join, 50 } },
     "0 joined, 210 noInfo" },
   { "JoinedJoinOfNoTimeChangesNothing",
     { { 0, Step::join, 210 }, { 100, Step::join, 0 } },
     "0 joined, 210 noInfo" },
   { "JoinedForEverJoinNeverShortens",
     { { 0, Step::join, kForever }, { 100, Step::join, 210 } },
     "0 joined" },
   { "JoinedJoinForEver",
     { { 0, Step::join, 210 }, { 100, Step::join, kForever } },
     "0 joined" },
   { "JoinedPruneWaitsForOverrides",
     { { 0, Step::join, 210 }, { 10, Step::prune, 3 } },
     "0 joined, 10 prunePending, 13 noInfo" },
   { "JoinedPruneWithoutOthersIsAtOnce",
     { { 0, Step::join, 210 }, { 10, Step::prune, 0 } },
     "0 joined, 10 noInfo" },
   { "JoinedForEverPrune",
     { { 0, Step::join, kForever }, { 10, Step::prune, 3 } },
     "0 joined, 10 prunePending, 13 noInfo" },
   // Prune-pending
   { "PendingJoinOverrides",
     { { 0, Step::join, 210 }, { 10, Step::prune, 3 }, { 12, Step::join, 210 } },
     "0 joined, 10 prunePending, 12 joined, 222 noInfo" },
   { "PendingJoinNeverShortens",
     { { 0, Step::join, 210 }, { 10, Step::prune, 3 }, { 12, Step::join, 5 } },
     "0 joined, 10 prunePending, 12 joined, 210 noInfo" },
   { "PendingPruneDoesNotWaitAgain",
     { { 0, Step::join, 210 }, { 10, Step::prune, 3 }, { 12, Step::prune, 3 } },
     "0 joined, 10 prunePending, 13 noInfo" },
   { "PendingExpires",
     { { 0, Step::join, 11 }, { 10, Step::prune, 3 } },
     "0 joined, 10 prunePending, 11 noInfo" },
   // Nothing of a former state is left.
   { "JoinAfterExpiry",
     { { 0, Step::join, 5 }, { 6, Step::join, 7 } },
     "0 joined, 5 noInfo, 6 joined, 13 noInfo" },
   { "ShortJoinAfterPruneOfLongOne",
     { { 0, Step::join, kForever }, { 1, Step::prune, 0 }, { 2, Step::join, 5 } },
     "0 joined, 1 noInfo, 2 joined, 7 noInfo" },
   { "PruneAgainAfterOverride",
     { { 0, Step::join, 210 },
       { 10, Step::prune, 3 },
       { 11, Step::join, 210 },
       { 12, Step::prune, 3 } },
     "0 joined, 10 prunePending, 11 joined, 12 prunePending, 15 noInfo" },
};

class DownstreamJoinTable : public testing::TestWithParam<Row> {};

TEST_P( DownstreamJoinTable, Follows ) {
   Mox::TestClock clock;
   Vrf vrf;
   auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" );
   size_t ends = 0;
   DownstreamJoin machine( clock, intf.ptr(), [&] {
      EXPECT_EQ( intf->joinState(), Intf::noInfo ) << "told before it has ended";
      ++ends;
   } );
   MachineRun run(
      clock, [&] { return std::string( stringValue( intf->joinState() ) ); } );
   for ( const Step& step : GetParam().steps ) {
      run.until( step.at );
      if ( step.what == Step::join ) {
         machine.receiveJoin( step.seconds );
         EXPECT_EQ( intf->lastJoinReceived(), clock.now() );
      } else {
         machine.receivePrune( step.seconds );
         EXPECT_LT( intf->lastJoinReceived(), clock.now() );
      }
      run.look();
   }
   run.until( kLongAfter );
   EXPECT_EQ( run.history(), GetParam().history );
   EXPECT_EQ( ends, run.times( "noInfo" ) );
}

INSTANTIATE_TEST_SUITE_P( Cells, DownstreamJoinTable, testing::ValuesIn( kRows ),
                          []( const auto& row ) { return row.param.name; } );

// The owner removes the machine when it hears of the end, on each of the ways
// there.
TEST( DownstreamJoin, MayBeDestroyedByItsEnd ) {
   for ( double pending : { 0.0, 3.0, kForever } ) {
      Mox::TestClock clock;
      Vrf vrf;
      auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" );
      std::unique_ptr<DownstreamJoin> machine;
      machine = std::make_unique<DownstreamJoin>( clock, intf.ptr(),
                                                  [&] { machine.reset(); } );
      machine->receiveJoin( 210 );
      machine->receivePrune( pending );
      clock.runUntil( clock.now() + 300 );
      EXPECT_EQ( machine, nullptr ) << pending;
      EXPECT_EQ( intf->joinState(), Intf::noInfo );
   }
}

// What a former agent left pending counts as joined: nothing tells when its timer
// would have ended.
TEST( DownstreamJoin, TakesUpReloadedStateForAHoldTime ) {
   for ( Intf::JoinState state : { Intf::joined, Intf::prunePending } ) {
      Mox::TestClock clock;
      Vrf vrf;
      auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" ).joinState( state );
      intf->lastJoinReceivedIs( 77 );
      DownstreamJoin machine( clock, intf.ptr(), [] {} );
      machine.adopt( 210 );
      EXPECT_EQ( intf->joinState(), Intf::joined );
      EXPECT_EQ( intf->lastJoinReceived(), 77 ) << "no join was received";
      clock.advance( 209 );
      clock.runPass();
      EXPECT_EQ( intf->joinState(), Intf::joined );
      clock.advance( 1 );
      clock.runPass();
      EXPECT_EQ( intf->joinState(), Intf::noInfo );
   }
}

}
}
