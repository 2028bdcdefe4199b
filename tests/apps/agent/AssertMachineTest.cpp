#include "apps/agent/engine/AssertMachine.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/apps/agent/MachineRun.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using namespace Routing::Pim::SparseMode;

// Received metrics. The router's own is [110/20] of 203.0.113.5, on the tree of its route.
const std::map<std::string, const char*> kMetrics = {
   { "best", "[S] 203.0.113.9 [90/1]" },
   { "good", "[S] 203.0.113.9 [110/10]" },
   { "higher", "[S] 203.0.113.9 [110/20]" },
   { "other", "[S] 203.0.113.8 [110/5]" },
   { "bad", "[S] 203.0.113.9 [120/1]" },
   { "badOther", "[S] 203.0.113.8 [120/1]" },
   { "rptBest", "[R] 203.0.113.9 [90/1]" },
   { "rptBad", "[R] 203.0.113.9 [120/1]" },
   { "cancel", "[R] 203.0.113.9 [2147483647/4294967295]" },
   { "cancelOther", "[R] 203.0.113.8 [2147483647/4294967295]" } };

struct Row {
   const char* name;
   bool shared;
   const char* script;
   const char* history;
};

// RFC 7761, 4.6.1 and 4.6.2: state by event. eth1 has been joined but where it is
// left; `data` comes in there.
const Row kRows[] = {
   // (S,G), no info
   { "Inferior", false, "0 assert bad", "0 won" },
   { "OfTheSharedTree", false, "0 assert rptBest", "0 won" },
   { "Data", false, "0 data", "0 won" },
   { "DataWhereNobodyIs", false, "0 leave, 1 data", "" },
   { "InferiorWhereNobodyIs", false, "0 leave, 1 assert bad", "" },
   { "Acceptable", false, "0 assert good", "0 lost to 9, 180 noInfo" },
   { "TiesGoToTheHigherAddress", false, "0 assert higher",
     "0 lost to 9, 180 noInfo" },
   { "AcceptableWhereNobodyIs", false, "0 leave, 1 assert good", "" },
   { "CancelSaysNothing", false, "0 leave, 1 assert cancel", "" },
   // winner
   { "WinnerStays", false, "0 data, 10 assert bad", "0 won" },
   { "WinnerYields", false, "0 data, 10 assert good",
     "0 won, 10 lost to 9, 190 noInfo" },
   { "WinnerLeaves", false, "0 data, 10 leave", "0 won, 10 noInfo" },
   { "WinnerIgnoresJoins", false, "0 data, 10 join", "0 won" },
   // loser
   { "LoserFollowsABetterOne", false, "0 assert good, 10 assert other",
     "0 lost to 9, 10 lost to 8, 190 noInfo" },
   { "LoserIgnoresAWorseOne", false, "0 assert other, 10 assert good",
     "0 lost to 8, 180 noInfo" },
   { "WinnerRefreshes", false, "0 assert best, 10 assert good",
     "0 lost to 9, 190 noInfo" },
   { "WinnerGetsWorse", false, "0 assert good, 10 assert bad",
     "0 lost to 9, 10 noInfo" },
   { "AnotherIsWorse", false, "0 assert good, 10 assert badOther",
     "0 lost to 9, 180 noInfo" },
   { "WinnerCancels", false, "0 assert good, 10 assert cancel",
     "0 lost to 9, 10 noInfo" },
   { "AnotherCancels", false, "0 assert good, 10 assert cancelOther",
     "0 lost to 9, 180 noInfo" },
   { "LoserHearsNoSharedTree", false, "0 assert other, 10 assert rptBest",
     "0 lost to 8, 180 noInfo" },
   { "WinnerIsLost", false, "0 assert good, 10 lose 9", "0 lost to 9, 10 noInfo" },
   { "AnotherIsLost", false, "0 assert good, 10 lose 8",
     "0 lost to 9, 180 noInfo" },
   { "LoserLeaves", false, "0 assert good, 10 leave", "0 lost to 9, 10 noInfo" },
   { "JoinEndsIt", false, "0 assert good, 10 join", "0 lost to 9, 10 noInfo" },
   { "OwnGetsBetter", false, "0 assert good, 10 improve",
     "0 lost to 9, 10 noInfo" },
   { "IncomingMovesAway", false, "0 move eth1, 1 assert good, 10 move eth0",
     "1 lost to 9, 10 noInfo" },
   { "IncomingMovesHere", false, "0 assert good, 10 move eth1",
     "0 lost to 9, 180 noInfo" },
   // (*,G): asserts of the shared tree only
   { "SharedInferior", true, "0 assert rptBad", "0 won" },
   { "SharedHearsNoSourceTree", true, "0 assert good, 1 assert bad", "" },
   { "SharedAcceptable", true, "0 assert rptBest", "0 lost to 9, 180 noInfo" },
   { "SharedWinnerYields", true, "0 data, 5 assert best, 10 assert rptBest",
     "0 won, 10 lost to 9, 190 noInfo" },
   { "SharedCancel", true, "0 assert rptBest, 10 assert cancel",
     "0 lost to 9, 10 noInfo" },
};

std::string stateOf( const Intf& intf ) {
   switch ( intf.assertInfo().assertState ) {
      case iAmAssertWinner:
         EXPECT_EQ( intf.assertWinner(), addr( "203.0.113.5" ) );
         return "won";
      case iAmAssertLoser:
         return "lost to " + std::to_string( intf.assertWinner().bytes()[3] );
      case assertNoInfo:
         break;
   }
   return "noInfo";
}

TEST( AssertMachine, FollowsTheTables ) {
   for ( const Row& row : kRows ) {
      SCOPED_TRACE( row.name );
      Mox::TestClock clock;
      Vrf vrf;
      vrf.pimIntf( "eth1", "203.0.113.5" ).pimIntf( "eth0", "192.0.2.5" );
      auto route = row.shared ? vrf.wc( "233.252.0.1" ).rpTree()
                              : vrf.sg( "192.0.2.1", "233.252.0.1" ).spTree();
      route.rpf( "eth0" ).upJoined();
      auto intf = route.intf( "eth1" ).joined();
      AssertMachine machine( clock, intf.ptr(), [] {} );
      MachineRun run( clock, [&] { return stateOf( *intf ); } );
      run.play( row.script, [&]( const MachineStep& step ) {
         if ( step.event == "assert" )
            machine.receive( assertMetric( kMetrics.at( step.words[0] ) ) );
         if ( step.event == "data" ) machine.handleData();
         if ( step.event == "join" ) machine.handleJoin();
         if ( step.event == "lose" )
            machine.handleNeighborLost(
               addr( step.times[0] == 9 ? "203.0.113.9" : "203.0.113.8" ) );
         if ( step.event == "leave" ) intf.joinState( Intf::noInfo );
         if ( step.event == "move" ) route.rpf( step.words[0] );
         if ( step.event == "improve" )
            route.rpf( rpfBy( "eth0", "192.0.2.254", 1, 1 ) );
         machine.review();
      } );
      EXPECT_EQ( run.history(), row.history );
   }
}

TEST( AssertMachine, TellsActionsAndCountsWhatItHears ) {
   Mox::TestClock clock;
   Vrf vrf;
   vrf.pimIntf( "eth1", "203.0.113.5" ).pimIntf( "eth0", "192.0.2.5" );
   auto intf = vrf.sg( "192.0.2.1", "233.252.0.1" )
                  .spTree()
                  .rpf( "eth0" )
                  .upJoined()
                  .intf( "eth1" )
                  .joined();
   AssertMachine machine( clock, intf.ptr(), [] {} );
   std::string actions;
   for ( const char* metric : { "bad", "bad", "good", "best", "bad", "good" } ) {
      machine.receive( assertMetric( kMetrics.at( metric ) ) );
      actions += std::to_string( intf->lastAssertAction() );
   }
   EXPECT_EQ( actions, "132256" );
   EXPECT_EQ( intf->rxInferiorAssert(), 3 );
   EXPECT_EQ( intf->rxPreferredAssert(), 3 );
}

}
}
