#include "apps/agent/engine/DownstreamRptPrune.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/MachineRun.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Test::Vrf;

// RFC 7761, figure 3, state by event; the states' names without "rpt". A prune says
// its hold time and how long others may override it; "end" is the message's.
const MachineRow kRows[] = {
   // NoInfo
   { "NoInfoWcJoin", "0 wcJoin, 0 end", "" },
   { "NoInfoRptJoin", "0 rptJoin", "" },
   { "NoInfoPrune", "0 prune 210 3", "0 PrunePending, 3 Pruned, 210 NoInfo" },
   { "NoInfoPruneAtOnce", "0 prune 210 0", "0 Pruned, 210 NoInfo" },
   { "NoInfoPruneForEver", "0 prune ever 3", "0 PrunePending, 3 Pruned" },
   { "NoInfoPruneOfNoTime", "0 prune 0 0", "0 Pruned, 0 NoInfo" },
   { "NoInfoPruneShorterThanItsOverride", "0 prune 2 3",
     "0 PrunePending, 2 NoInfo" },
   // Prune
   { "PrunedWcJoin", "0 prune 210 0, 9 wcJoin, 9 end",
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "PrunedRptJoin", "0 prune 210 0, 9 rptJoin", "0 Pruned, 9 NoInfo" },
   { "PrunedPruneExtends", "0 prune 210 0, 9 prune 210 3", "0 Pruned, 219 NoInfo" },
   { "PrunedPruneNeverShortens", "0 prune 210 0, 9 prune 50 3",
     "0 Pruned, 210 NoInfo" },
   { "PrunedForEverPrune", "0 prune ever 0, 9 prune 50 3", "0 Pruned" },
   { "PrunedEnd", "0 prune 210 0, 9 end", "0 Pruned, 210 NoInfo" },
   // Prune-pending
   { "PendingWcJoin", "0 prune 210 3, 1 wcJoin, 1 end",
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingRptJoin", "0 prune 210 3, 1 rptJoin", "0 PrunePending, 1 NoInfo" },
   { "PendingPruneChangesNoTimer", "0 prune 210 3, 1 prune 300 3",
     "0 PrunePending, 3 Pruned, 210 NoInfo" },
   { "PendingEnd", "0 prune 210 3, 1 end", "0 PrunePending, 3 Pruned, 210 NoInfo" },
   // PruneTmp
   { "TempWcJoin", "0 prune 210 0, 9 wcJoin, 9 wcJoin, 9 end",
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "TempRptJoinIsTakenAtItsWord", "0 prune 210 0, 9 wcJoin, 9 rptJoin, 9 end",
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "TempPruneExtends", "0 prune 210 0, 9 wcJoin, 9 prune 210 3, 9 end",
     "0 Pruned, 9 PruneTemp, 9 Pruned, 219 NoInfo" },
   { "TempPruneNeverShortens", "0 prune 210 0, 9 wcJoin, 9 prune 50 3, 9 end",
     "0 Pruned, 9 PruneTemp, 9 Pruned, 210 NoInfo" },
   // Prune-pending-tmp
   { "PendingTempWcJoin", "0 prune 210 3, 1 wcJoin, 1 wcJoin, 1 end",
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingTempRptJoinIsTakenAtItsWord",
     "0 prune 210 3, 1 wcJoin, 1 rptJoin, 1 end",
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingTempPruneExtendsExpiryAlone",
     "0 prune 210 3, 1 wcJoin, 1 prune 210 3, 1 end",
     "0 PrunePending, 1 PrunePendingTemp, 1 PrunePending, 3 Pruned, 211 NoInfo" },
   { "PendingTempPruneNeverShortens",
     "0 prune 210 3, 1 wcJoin, 1 prune 50 3, 1 end",
     "0 PrunePending, 1 PrunePendingTemp, 1 PrunePending, 3 Pruned, 210 NoInfo" },
   // Nothing of a former state is left.
   { "PruneAfterJoinWaitsAnew", "0 prune 210 3, 1 rptJoin, 2 prune 10 3",
     "0 PrunePending, 1 NoInfo, 2 PrunePending, 5 Pruned, 12 NoInfo" },
   { "ShortPruneAfterLongOne", "0 prune ever 0, 1 rptJoin, 2 prune 5 0",
     "0 Pruned, 1 NoInfo, 2 Pruned, 7 NoInfo" },
};

void play( DownstreamRptPrune& machine, const MachineStep& step ) {
   if ( step.event == "wcJoin" ) return machine.receiveWcJoin();
   if ( step.event == "rptJoin" ) return machine.receiveRptJoin();
   if ( step.event == "end" ) return machine.endOfMessage();
   machine.receiveRptPrune( step.times[0], step.times[1] );
}

TEST( DownstreamRptPrune, FollowsTheFigure ) {
   for ( const MachineRow& row : kRows ) {
      SCOPED_TRACE( row.name );
      Mox::TestClock clock;
      Vrf vrf;
      auto intf = vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" );
      size_t ends = 0;
      DownstreamRptPrune machine( clock, intf.ptr(), [&] {
         EXPECT_EQ( intf->rptState(), Intf::rptNoInfo ) << "told before its end";
         ++ends;
      } );
      MachineRun run( clock, [&] {
         return std::string( stringValue( intf->rptState() ) ).substr( 3 );
      } );
      run.play( row.script, [&]( const MachineStep& step ) {
         play( machine, step );
         if ( step.event != "prune" ) return;
         EXPECT_EQ( intf->lastRptPruneReceived(), clock.now() );
      } );
      EXPECT_EQ( run.history(), row.history );
      EXPECT_EQ( ends, run.times( "NoInfo" ) );
      EXPECT_EQ( intf->joinState(), Intf::noInfo ) << "another machine's";
   }
}

}
}
