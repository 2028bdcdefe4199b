#include <gtest/gtest.h>

#include "tests/support/ModelRecorders.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Lines = Mox::Test::TraceCapture::Lines;

class Upstream : public testing::Test {
 protected:
   Vrf vrf;
   RouteBuilder sg =
      vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" ).prevRpf( "eth9" );
   // The traces of iif(), behind the route's key.
   Lines takeIif() {
      Lines lines = traces.take();
      for ( auto& line : lines ) {
         const Mox::String start = "Pimsm 7 iif(192.0.2.1, 233.252.0.1), Flags: ";
         EXPECT_EQ( line.find( start ), 0U ) << line;
         line.erase( 0, start.size() );
      }
      return lines;
   }

   Mox::Test::TraceCapture traces{ "Pimsm/8" };
};

// In each case the later cases' interfaces exist as well.
TEST_F( Upstream, BorderRouterComesFirst ) {
   vrf.wc( "233.252.0.1" ).rpf( "eth1" );
   sg.mbr( "eth3" ).switching().iifSwitching( Route::wrongVifRecd );
   EXPECT_EQ( sg->iif(), intfId( "eth3" ) );
   sg.mbr( "" );
   EXPECT_EQ( sg->iif(), intfId( "Null0" ) );
   EXPECT_EQ( takeIif(), ( Lines{ "JTBE, MBR, returning 'eth3'",
                                  "JTBE, MBR, returning ''" } ) );
}

TEST_F( Upstream, SwitchingAnswersWithTheSharedTree ) {
   auto wc = vrf.wc( "233.252.0.1" ).rpf( "eth1" );
   sg.switching().iifSwitching( Route::switchIifUpdated );
   EXPECT_EQ( sg->iif(), intfId( "eth1" ) );
   wc.rpf( Rpf() );
   EXPECT_EQ( sg->iif(), intfId( "Null0" ) );
   // Without a (*,G) route the later cases decide.
   vrf->routeDel( wc->key() );
   EXPECT_EQ( sg->iif(), intfId( "eth9" ) );
   EXPECT_EQ( takeIif(), ( Lines{ "JTE, switching, returning 'eth1'",
                                  "JTE, switching, returning ''",
                                  "JTE, iif switching, returning 'eth9'" } ) );
}

TEST_F( Upstream, InterfaceSwitchKeepsTheFormerOneInTwoStates ) {
   const std::pair<Route::IifSwitchState, const char*> cases[] = {
      { Route::notSwitching, "eth0" },     { Route::switchIifUpdated, "eth9" },
      { Route::wrongVifRecd, "eth9" },     { Route::intervalElapsed, "eth0" },
      { Route::hwSwitchComplete, "eth0" },
   };
   for ( const auto& [state, iif] : cases ) {
      sg.iifSwitching( state );
      EXPECT_EQ( sg->iif(), intfId( iif ) ) << state;
      EXPECT_EQ( sg->switchIifUpdateComplete(), state == Route::switchIifUpdated );
   }
   sg.iifSwitching( Route::wrongVifRecd )->iifSwitchingIs( false );
   traces.take();
   EXPECT_EQ( sg->iif(), intfId( "eth0" ) );
   EXPECT_EQ( takeIif(), Lines{ "E, not switching, returning 'eth0'" } );
}

TEST_F( Upstream, BackupPathIgnoresTheMainCasesAndSwitchingSilencesIt ) {
   sg.mbr( "eth3" ).rpfFrr( "eth2" );
   EXPECT_EQ( sg->iifFrr(), intfId( "eth2" ) );
   sg.switching();
   EXPECT_EQ( sg->iifFrr(), intfId( "Null0" ) );
   EXPECT_EQ( traces.take(), Lines{} );
}

// Traffic on the source tree comes in by all of these cases, the later the stronger.
TEST_F( Upstream, TellsWhereTheSourceTreeComesIn ) {
   vrf.wc( "233.252.0.1" ).rpf( "eth1" );
   sg.spTree().iifSwitching( Route::wrongVifRecd );
   EXPECT_EQ( sg->incomingIntf(), intfId( "eth9" ) );
   sg.switching();
   EXPECT_EQ( sg->incomingIntf(), intfId( "eth1" ) );
   sg.mbr( "eth3" );
   EXPECT_EQ( sg->incomingIntf(), intfId( "eth3" ) );
   // The route to which the record is bound decides.
   auto other = vrf.sg( "192.0.2.2", "233.252.0.1" );
   sg->umh()->routeIs( other.ptr().get() );
   EXPECT_EQ( sg->incomingIntf(), intfId( "eth0" ) );
}

TEST_F( Upstream, UnboundRecordHasNoInterface ) {
   sg->umh()->routeIs( nullptr );
   EXPECT_EQ( sg->iif(), intfId( "Null0" ) );
   EXPECT_FALSE( sg->directlyConnected() );
   sg.attached();
   EXPECT_TRUE( sg->directlyConnected() );
   sg.attached( false ).mbr( "eth3" );
   EXPECT_FALSE( sg->directlyConnected() );
   sg->umh()->routeIs( sg.get() );
   EXPECT_TRUE( sg->directlyConnected() );
   EXPECT_EQ( traces.take(), Lines{} );
}

TEST_F( Upstream, AnotherRpfMovesTheFormerOneAside ) {
   UpstreamRecorder recorder( sg->umh() );
   recorder.inside = [&]( const Mox::String& what ) {
      const char* now = what == "prevRpf" ? "eth0" : "eth1";
      EXPECT_EQ( sg->rpf().intfId, intfId( now ) );
   };
   sg->umh()->doUpdateRpf( rpfBy( "eth1", "192.0.2.253", 20, 5 ) );
   EXPECT_EQ( recorder.take(), ( Heard{ "prevRpf", "rpf" } ) );
   recorder.inside = nullptr;
   EXPECT_EQ( sg->prevRpf(), rpfBy( "eth0" ) );
   sg->umh()->doUpdateRpf( sg->umh()->rpf() );
   EXPECT_EQ( recorder.take(), Heard{} );
   EXPECT_EQ( sg->prevRpf(), rpfBy( "eth0" ) );
   // The argument may be the very value that the call moves.
   sg->umh()->doUpdateRpf( sg->umh()->prevRpf() );
   EXPECT_EQ( sg->rpf(), rpfBy( "eth0" ) );
   EXPECT_EQ( sg->prevRpf(), rpfBy( "eth1", "192.0.2.253", 20, 5 ) );
   EXPECT_EQ(
      traces.take(),
      ( Lines{
         "Pimsm 4 doUpdateRpf current RPF: 'eth0' via 192.0.2.254 [110/20] new "
         "RPF: "
         "'eth1' via 192.0.2.253 [20/5] (MoFrr: 0)",
         "Pimsm 4 doUpdateRpf current RPF is the same as new RPF 'eth1' via "
         "192.0.2.253 [20/5] (MoFrr: 0)",
         "Pimsm 4 doUpdateRpf current RPF: 'eth1' via 192.0.2.253 [20/5] new RPF: "
         "'eth0' via 192.0.2.254 [110/20] (MoFrr: 0)" } ) );
}

TEST_F( Upstream, AnEqualRptStateStillOverwritesTheFormerOne ) {
   UpstreamRecorder recorder( sg->umh() );
   sg->umh()->doUpdateRptState( upRptPruned );
   EXPECT_EQ( recorder.take(), Heard{ "upRptState" } );
   sg->umh()->doUpdateRptState( upRptPruned );
   EXPECT_EQ( sg->prevRptState(), upRptPruned );
   EXPECT_EQ( sg->upRptState(), upRptPruned );
   EXPECT_EQ( recorder.take(), Heard{ "prevRptState" } );
   EXPECT_EQ( traces.take(),
              ( Lines{ "Pimsm 8 doUpdateRptState(192.0.2.1, 233.252.0.1) prev "
                       "upRptNotJoined curr upRptNotJoined new upRptPruned",
                       "Pimsm 8 doUpdateRptState(192.0.2.1, 233.252.0.1) prev "
                       "upRptNotJoined curr upRptPruned new upRptPruned" } ) );
}

}
}
