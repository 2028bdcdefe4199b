// Cases outside the oracle's states: neighbours that are missing altogether, the
// fatal assertion, traces, and the letters that macros put into a route's flags.
#include <gtest/gtest.h>

#include "model/Derivation.h"
#include "tests/model/macros/Allocations.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::Test::assertionText;
using Mox::Test::TraceCapture;

// The macros that are true.
Mox::String truths( const Intf& intf ) {
   Mox::String names;
   for ( Mox::StringView macro : intfMacroNames() )
      if ( derive( intf, macro ).value == "true" )
         names += Mox::String( macro ) + ' ';
   return names;
}

// Checks a record in each way of having no neighbours.
void expectAlone( IntfBuilder intf ) {
   EXPECT_EQ( truths( *intf ), "iAmDr " );
   intf.joined().include();
   EXPECT_EQ( truths( *intf ),
              "iAmDr joinsWc joinsSg includeWc includeSg includeSgFastFailover "
              "immediateOlistWc immediateOlistSg inheritedOlistSg couldAssertWc "
              "assertTrackingDesiredWc assertTrackingDesiredSg " );
   intf.joinState( Intf::noInfo ).include( false ).exclude().rptPruned();
   intf.lostAssert( "[R] 192.0.2.9 [120/30]" );
   EXPECT_EQ( truths( *intf ),
              "iAmDr prunesSgRpt lostAssertWc lostAssertSg lostAssertSgRpt " );
   EXPECT_EQ( intf->pimIntf(), nullptr );
   EXPECT_EQ( intf->myIp(), Vantu::IpGenAddr() );
   for ( const AssertMetric& own :
         { intf->sptAssertMetric(), intf->rptAssertMetric(),
           intf->myAssertMetricWc(), intf->myAssertMetricSg() } ) {
      EXPECT_EQ( own, AssertMetric() );
   }
   EXPECT_TRUE(
      intf->isAcceptableAssertSg( assertMetric( "[R] 192.0.2.9 [1/1]" ) ) );
   EXPECT_FALSE(
      intf->isInferiorAssertSg( assertMetric( "[R] 192.0.2.9 [1/1]" ) ) );
}

TEST( MacrosAlone, WithoutRouteStatusOrPimStatus ) {
   const RouteKey key = sgKey( "192.0.2.1", "233.252.0.1" );
   expectAlone( IntfBuilder( new Intf( intfId( "eth1" ), nullptr ) ) );
   RouteBuilder stray( new Route( key, nullptr ) );
   expectAlone( stray.intf( "eth1" ) );
   EXPECT_EQ( stray.intf( "eth1" )->wcIntf(), nullptr );
   EXPECT_FALSE( stray->pruneDesiredSgRpt() );
   EXPECT_FALSE( stray->joinDesiredSg() );
   Vrf vrf;
   expectAlone( vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" ) );
}

// Without a route the RPF interface is the empty one, here the record's own.
TEST( MacrosAlone, NamelessInterfaceIsTheMissingRpfInterface ) {
   IntfBuilder intf( new Intf( Vantu::IntfId(), nullptr ) );
   EXPECT_EQ( truths( *intf ), "iAmDr " );
   intf.joined().lostAssert( "[R] 192.0.2.9 [1/1]" );
   EXPECT_EQ( truths( *intf ),
              "iAmDr joinsWc joinsSg immediateOlistWc "
              "assertTrackingDesiredSg lostAssertSg " );
}

TEST( MacrosOfSg, RefuseWildcardRoutes ) {
   Vrf vrf;
   auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" ).joined();
   const AssertMetric metric = assertMetric( "[S] 192.0.2.9 [110/20]" );
   const char* text = "!sgRoute->routeFlags().wildCard()";
   EXPECT_EQ( assertionText( [&] { intf->couldAssertSg(); } ), text );
   EXPECT_EQ( assertionText( [&] { intf->assertTrackingDesiredSg(); } ), text );
   EXPECT_EQ( assertionText( [&] { intf->myAssertMetricSg(); } ), text );
   EXPECT_EQ( assertionText( [&] { intf->isAcceptableAssertSg( metric ); } ),
              text );
   EXPECT_EQ( assertionText( [&] { intf->isInferiorAssertSg( metric ); } ), text );
   EXPECT_EQ( assertionText( [&] { intf->lostAssertSg(); } ), "" );
}

// The flag, not the key, decides whose RPF stands for the shared tree's.
TEST( MacrosOfSg, WildcardFlagAloneMakesTheRpfTheSharedTrees ) {
   Vrf vrf;
   vrf.wc( "233.252.0.1" ).rpf( "eth0" ).intf( "eth1" ).joined();
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "Register0" );
   sg.intf( "eth1" ).rptPruned();
   EXPECT_TRUE( sg->pruneDesiredSgRpt() );
   sg->wildCardIs( true );
   EXPECT_FALSE( sg->pruneDesiredSgRpt() );
}

// A record made under another route counts by its own answer.
TEST( MacrosOfSg, RecordOfAnotherRouteInheritsThatRoutesOlist ) {
   Vrf vrf;
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" );
   vrf.wc( "233.252.0.2" ).intf( "eth1" ).joined();
   auto intf = sg->routeIntfIs( intfId( "eth1" ),
                                vrf.sg( "192.0.2.1", "233.252.0.2" ).get() );
   EXPECT_TRUE( intf->inheritedOlistSg() );
   EXPECT_FALSE( sg->nullInheritedOlistSg() );
}

TEST( MacroTraces, ExactTextsAtLevelEight ) {
   Vrf vrf;
   vrf.pimIntf( "eth1", "192.0.2.5" );
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).spTree().upJoined().rpf( "eth0" );
   auto intf = sg.intf( "eth1" ).joined().lostAssert( "[S] 192.0.2.9 [90/10]" );
   const AssertMetric foreign = assertMetric( "[S] 192.0.2.7 [100/1]" );
   const Mox::String rpfTest = "Pimsm 8 lostAssertSg'eth1'";
   const Mox::String winner =
      "Pimsm 8 lostAssertSg assertWinner 192.0.2.9, myIp 192.0.2.5, "
      "assertWinnerMetric [S] 192.0.2.9 [90/10], sptAssertMetric [S] 192.0.2.5 "
      "[110/20]";

   TraceCapture trace( "Pimsm/8" );
   EXPECT_TRUE( intf->lostAssertSg() );
   EXPECT_EQ( trace.take(), ( TraceCapture::Lines{ rpfTest, winner } ) );
   EXPECT_FALSE( intf->isPreferredAssertSg( foreign ) );
   EXPECT_EQ( trace.take(),
              ( TraceCapture::Lines{
                 "Pimsm 8 isPreferredAssertSg assertWinnerMetric [S] "
                 "192.0.2.9 [90/10] foreign [S] 192.0.2.7 [100/1]" } ) );
   EXPECT_FALSE( intf->isInferiorAssertSg( foreign ) );
   EXPECT_EQ( trace.take(), ( TraceCapture::Lines{
                               "Pimsm 8 isInferiorAssertSg mine [S] 192.0.2.5 "
                               "[110/20] foreign [S] 192.0.2.7 [100/1]" } ) );
   // On the RPF interface the answer is known before the winner is read.
   sg.rpf( "eth1" );
   EXPECT_FALSE( intf->lostAssertSg() );
   EXPECT_EQ( trace.take(), TraceCapture::Lines{ rpfTest } );
   sg.rpf( "eth0" );
   flipsOf( *intf, "lostAssertSg" );
   EXPECT_EQ( trace.take(), TraceCapture::Lines() );

   Mox::traceSettingsIs( "Pimsm/0-7" );
   const uint64_t before = allocations;
   intf->lostAssertSg();
   intf->isPreferredAssertSg( foreign );
   intf->isInferiorAssertSg( foreign );
   EXPECT_EQ( allocations, before ) << "built though disabled";
   EXPECT_EQ( trace.take(), TraceCapture::Lines() );
}

// Nothing comes in by the fast-reroute path yet.
TEST( FastForwardDesired, ExcludesNoInterfaceWhileSwitching ) {
   Vrf vrf;
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).spTree().rpf( "eth0" );
   sg.rpfFrr( "eth1" );
   auto intf = sg.intf( "eth1" ).joined();
   EXPECT_FALSE( intf->fastForwardDesired() );
   sg.switching();
   EXPECT_TRUE( intf->fastForwardDesired() );
}

TEST( RouteFlagsLetters, TellWhereDataGoesWhileSwitching ) {
   Vrf vrf;
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).switching().katExpired( false );
   EXPECT_EQ( sg->routeFlagsString(), "JE" );
   auto wc = vrf.wc( "233.252.0.1" );
   auto shared = wc.intf( "eth1" ).joined();
   EXPECT_EQ( sg->routeFlagsString(), "JEH" );
   sg.katExpired();
   EXPECT_EQ( sg->routeFlagsString(), "JE" );
   auto own = sg.intf( "eth2" ).joined();
   EXPECT_EQ( sg->routeFlagsString(), "JED" );
   sg.katExpired( false );
   EXPECT_EQ( sg->routeFlagsString(), "JEHD" );
   sg.switching( false );
   EXPECT_EQ( sg->routeFlagsString(), "E" );
}

}
}
