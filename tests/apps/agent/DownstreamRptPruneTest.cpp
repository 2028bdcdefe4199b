#include "apps/agent/engine/DownstreamRptPrune.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/MachineRun.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Test::Vrf;

constexpr double kForever = Timer::never;

enum Event { wcJoin, rptJoin, rptPrune, end };

struct Step {
   double at;
   Event event;
   double holdtime = 0;
   double pending = 0;
};

struct Row {
   const char* name;
   std::vector<Step> steps;
   const char* history;
};

std::ostream& operator<<( std::ostream& out, const Row& row ) {
   return out << row.name;
}

constexpr Step kPrune{ 0, rptPrune, 210, 3 };
constexpr Step kPruneAtOnce{ 0, rptPrune, 210, 0 };

// RFC 7761, figure 3, state by event; the states' names without "rpt".
const Row kRows[] = {
   // NoInfo
   { "NoInfoWcJoin", { { 0, wcJoin }, { 0, end } }, "" },
   { "NoInfoRptJoin", { { 0, rptJoin } }, "" },
   { "NoInfoPrune", { kPrune }, "0 PrunePending, 3 Pruned, 210 NoInfo" },
   { "NoInfoPruneWithoutOthersIsAtOnce", { kPruneAtOnce }, "0 Pruned, 210 NoInfo" },
   { "NoInfoPruneForEver",
     { { 0, rptPrune, kForever, 3 } },
     "0 PrunePending, 3 Pruned" },
   { "NoInfoPruneOfNoTime", { { 0, rptPrune, 0, 0 } }, "0 Pruned, 0 NoInfo" },
   { "NoInfoPruneShorterThanItsOverride",
     { { 0, rptPrune, 2, 3 } },
     "0 PrunePending, 2 NoInfo" },
   // Prune
   { "PrunedWcJoin",
     { kPruneAtOnce, { 9, wcJoin }, { 9, end } },
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "PrunedRptJoin", { kPruneAtOnce, { 9, rptJoin } }, "0 Pruned, 9 NoInfo" },
   { "PrunedPruneExtends",
     { kPruneAtOnce, { 9, rptPrune, 210, 3 } },
     "0 Pruned, 219 NoInfo" },
   { "PrunedPruneNeverShortens",
     { kPruneAtOnce, { 9, rptPrune, 50, 3 } },
     "0 Pruned, 210 NoInfo" },
   { "PrunedForEverPruneNeverShortens",
     { { 0, rptPrune, kForever, 0 }, { 9, rptPrune, 50, 3 } },
     "0 Pruned" },
   { "PrunedEnd", { kPruneAtOnce, { 9, end } }, "0 Pruned, 210 NoInfo" },
   // Prune-pending
   { "PendingWcJoin",
     { kPrune, { 1, wcJoin }, { 1, end } },
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingRptJoin", { kPrune, { 1, rptJoin } }, "0 PrunePending, 1 NoInfo" },
   { "PendingPruneChangesNoTimer",
     { kPrune, { 1, rptPrune, 300, 3 } },
     "0 PrunePending, 3 Pruned, 210 NoInfo" },
   { "PendingEnd", { kPrune, { 1, end } }, "0 PrunePending, 3 Pruned, 210 NoInfo" },
   // PruneTmp
   { "TempWcJoin",
     { kPruneAtOnce, { 9, wcJoin }, { 9, wcJoin }, { 9, end } },
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "TempRptJoinIsTakenAtItsWord",
     { kPruneAtOnce, { 9, wcJoin }, { 9, rptJoin }, { 9, end } },
     "0 Pruned, 9 PruneTemp, 9 NoInfo" },
   { "TempPruneExtends",
     { kPruneAtOnce, { 9, wcJoin }, { 9, rptPrune, 210, 3 }, { 9, end } },
     "0 Pruned, 9 PruneTemp, 9 Pruned, 219 NoInfo" },
   { "TempPruneNeverShortens",
     { kPruneAtOnce, { 9, wcJoin }, { 9, rptPrune, 50, 3 }, { 9, end } },
     "0 Pruned, 9 PruneTemp, 9 Pruned, 210 NoInfo" },
   // Prune-pending-tmp
   { "PendingTempWcJoin",
     { kPrune, { 1, wcJoin }, { 1, wcJoin }, { 1, end } },
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingTempRptJoinIsTakenAtItsWord",
     { kPrune, { 1, wcJoin }, { 1, rptJoin }, { 1, end } },
     "0 PrunePending, 1 PrunePendingTemp, 1 NoInfo" },
   { "PendingTempPruneExtendsExpiryAlone",
     { kPrune, { 1, wcJoin }, { 1, rptPrune, 210, 3 }, { 1, end } },
     "0 PrunePending, 1 PrunePendingTemp, 1 PrunePending, 3 Pruned, 211 NoInfo" },
   { "PendingTempPruneNeverShortens",
     { kPrune, { 1, wcJoin }, { 1, rptPrune, 50, 3 }, { 1, end } },
     "0 PrunePending, 1 PrunePendingTemp, 1 PrunePending, 3 Pruned, 210 NoInfo" },
   // Nothing of a former state is left.
   { "PruneAfterJoinWaitsAnew",
     { kPrune, { 1, rptJoin }, { 2, rptPrune, 10, 3 } },
     "0 PrunePending, 1 NoInfo, 2 PrunePending, 5 Pruned, 12 NoInfo" },
   { "ShortPruneAfterLongOne",
     { { 0, rptPrune, kForever, 0 }, { 1, rptJoin }, { 2, rptPrune, 5, 0 } },
     "0 Pruned, 1 NoInfo, 2 Pruned, 7 NoInfo" },
};

void play( DownstreamRptPrune& machine, const Step& step ) {
   switch ( step.event ) {
      case wcJoin:
         return machine.receiveWcJoin();
      case rptJoin:
         return machine.receiveRptJoin();
      case rptPrune:
         return machine.receiveRptPrune( step.holdtime, step.pending );
      case end:
         return machine.endOfMessage();
   }
}

class DownstreamRptPruneTable : public testing::TestWithParam<Row> {};

TEST_P( DownstreamRptPruneTable, Follows ) {
   Mox::TestClock clock;
   Vrf vrf;
   auto intf = vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" );
   size_t ends = 0;
   DownstreamRptPrune machine( clock, intf.ptr(), [&] {
      EXPECT_EQ( intf->rptState(), Intf::rptNoInfo ) << "told before it has ended";
      ++ends;
   } );
   MachineRun run( clock, [&] {
      return std::string( stringValue( intf->rptState() ) ).substr( 3 );
   } );
   for ( const Step& step : GetParam().steps ) {
      run.until( step.at );
      play( machine, step );
      if ( step.event == rptPrune ) {
         EXPECT_EQ( intf->lastRptPruneReceived(), clock.now() );
      }
      run.look();
   }
   run.until( kLongAfter );
   EXPECT_EQ( run.history(), GetParam().history );
   EXPECT_EQ( ends, run.times( "NoInfo" ) );
   EXPECT_EQ( intf->joinState(), Intf::noInfo ) << "another machine's";
}

INSTANTIATE_TEST_SUITE_P( Cells, DownstreamRptPruneTable,
                          testing::ValuesIn( kRows ),
                          []( const auto& row ) { return row.param.name; } );

TEST( DownstreamRptPrune, MayBeDestroyedByItsEnd ) {
   const std::vector<Step> ways[] = {
      { kPrune },
      { kPrune, { 1, rptJoin } },
      { kPrune, { 1, wcJoin }, { 1, end } },
      { kPruneAtOnce, { 1, rptJoin } },
   };
   for ( const auto& steps : ways ) {
      Mox::TestClock clock;
      Vrf vrf;
      auto intf = vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" );
      std::unique_ptr<DownstreamRptPrune> machine;
      machine = std::make_unique<DownstreamRptPrune>( clock, intf.ptr(),
                                                      [&] { machine.reset(); } );
      for ( const Step& step : steps ) play( *machine, step );
      clock.runUntil( clock.now() + 300 );
      EXPECT_EQ( machine, nullptr );
      EXPECT_EQ( intf->rptState(), Intf::rptNoInfo );
   }
}

TEST( DownstreamRptPrune, TakesUpReloadedStateForAHoldTime ) {
   for ( Intf::RptState state :
         { Intf::rptPruned, Intf::rptPrunePending, Intf::rptPruneTemp,
           Intf::rptPrunePendingTemp } ) {
      Mox::TestClock clock;
      Vrf vrf;
      auto intf =
         vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" ).rptState( state );
      DownstreamRptPrune machine( clock, intf.ptr(), [] {} );
      machine.adopt( 210 );
      EXPECT_EQ( intf->rptState(), Intf::rptPruned );
      machine.endOfMessage();
      clock.advance( 209 );
      clock.runPass();
      EXPECT_EQ( intf->rptState(), Intf::rptPruned );
      clock.advance( 1 );
      clock.runPass();
      EXPECT_EQ( intf->rptState(), Intf::rptNoInfo );
   }
}

}
}
