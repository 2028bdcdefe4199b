#include "apps/agent/engine/DownstreamJoin.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/MachineRun.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Test::Vrf;

// RFC 7761, figures 1 and 2, state by event; what a timer does later shows which
// timers the event set. A prune says how long others may override it.
const MachineRow kRows[] = {
   // NoInfo
   { "NoInfoJoin", "0 join 210", "0 joined, 210 noInfo" },
   { "NoInfoPrune", "0 prune 3", "" },
   { "NoInfoJoinOfNoTime", "0 join 0", "0 joined, 0 noInfo" },
   { "NoInfoJoinForEver", "0 join ever", "0 joined" },
   // Join
   { "JoinedJoinExtends", "0 join 210, 100 join 210", "0 joined, 310 noInfo" },
   { "JoinedJoinNeverShortens", "0 join 210, 100 join 50", "0 joined, 210 noInfo" },
   { "JoinedJoinOfNoTime", "0 join 210, 100 join 0", "0 joined, 210 noInfo" },
   { "JoinedForEverJoin", "0 join ever, 100 join 210", "0 joined" },
   { "JoinedJoinForEver", "0 join 210, 100 join ever", "0 joined" },
   { "JoinedPruneWaitsForOverrides", "0 join 210, 10 prune 3",
     "0 joined, 10 prunePending, 13 noInfo" },
   { "JoinedPruneAtOnce", "0 join 210, 10 prune 0", "0 joined, 10 noInfo" },
   { "JoinedForEverPrune", "0 join ever, 10 prune 3",
     "0 joined, 10 prunePending, 13 noInfo" },
   // Prune-pending
   { "PendingJoinOverrides", "0 join 210, 10 prune 3, 12 join 210",
     "0 joined, 10 prunePending, 12 joined, 222 noInfo" },
   { "PendingJoinNeverShortens", "0 join 210, 10 prune 3, 12 join 5",
     "0 joined, 10 prunePending, 12 joined, 210 noInfo" },
   { "PendingPruneDoesNotWaitAgain", "0 join 210, 10 prune 3, 12 prune 3",
     "0 joined, 10 prunePending, 13 noInfo" },
   { "PendingExpires", "0 join 11, 10 prune 3",
     "0 joined, 10 prunePending, 11 noInfo" },
   // Nothing of a former state is left.
   { "JoinAfterExpiry", "0 join 5, 6 join 7",
     "0 joined, 5 noInfo, 6 joined, 13 noInfo" },
   { "ShortJoinAfterPruneOfLongOne", "0 join ever, 1 prune 0, 2 join 5",
     "0 joined, 1 noInfo, 2 joined, 7 noInfo" },
   { "PruneAgain", "0 join 210, 10 prune 3, 11 join 210, 12 prune 3",
     "0 joined, 10 prunePending, 11 joined, 12 prunePending, 15 noInfo" },
};

// That the machine may be destroyed by its end, and takes up what was reloaded, is
// seen with its owner: JoinPruneEngineTest.
TEST( DownstreamJoin, FollowsTheFigure ) {
   for ( const MachineRow& row : kRows ) {
      SCOPED_TRACE( row.name );
      Mox::TestClock clock;
      Vrf vrf;
      auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" );
      size_t ends = 0;
      DownstreamJoin machine( clock, intf.ptr(), [&] {
         EXPECT_EQ( intf->joinState(), Intf::noInfo ) << "told before its end";
         ++ends;
      } );
      MachineRun run(
         clock, [&] { return std::string( stringValue( intf->joinState() ) ); } );
      run.play( row.script, [&]( const MachineStep& step ) {
         bool joins = step.event == "join";
         if ( joins ) machine.receiveJoin( step.times[0] );
         if ( !joins ) machine.receivePrune( step.times[0] );
         EXPECT_EQ( intf->lastJoinReceived() == clock.now(), joins );
      } );
      EXPECT_EQ( run.history(), row.history );
      EXPECT_EQ( ends, run.times( "noInfo" ) );
   }
}

}
}
