// Two routers on one LAN, each with a model of its own, walk through an assert as
// their assert machines would (RFC 7761, 4.6), compared macro by macro.
//
//      source / RP             near: 192.0.2.1, path [110/10]
//       |       |              far:  192.0.2.9, path [110/20]
//      eth0    eth0
//      near     far            (on equal paths the far one would win by address)
//       |       |
//     --+--lan--+--  a downstream router has joined through each
#include <gtest/gtest.h>

#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

constexpr const char* kSource = "198.51.100.7";
constexpr const char* kGroup = "233.252.0.1";

// The (S,G) record's answers on the LAN, as letters: could assert, tracks, lost, in
// the immediate and in the inherited list.
Mox::String answers( const Intf& intf ) {
   Mox::String letters;
   auto add = [&]( bool holds, char letter ) {
      if ( holds ) letters += letter;
   };
   add( intf.couldAssertSg(), 'C' );
   add( intf.assertTrackingDesiredSg(), 'T' );
   add( intf.lostAssertSg(), 'L' );
   add( intf.immediateOlistSg(), 'I' );
   add( intf.inheritedOlistSg(), 'O' );
   return letters;
}

// The verdict on a received metric: preferred, acceptable, inferior.
Mox::String verdict( const Intf& intf, const AssertMetric& metric ) {
   const bool wc = intf.parentRoute()->wildCard();
   Mox::String letters;
   auto add = [&]( auto ofWc, auto ofSg, char letter ) {
      if ( ( intf.*( wc ? ofWc : ofSg ) )( metric ) ) letters += letter;
   };
   add( &Intf::isPreferredAssertWc, &Intf::isPreferredAssertSg, 'P' );
   add( &Intf::isAcceptableAssertWc, &Intf::isAcceptableAssertSg, 'A' );
   add( &Intf::isInferiorAssertWc, &Intf::isInferiorAssertSg, 'I' );
   return letters;
}

struct Router {
   Router( const char* address, uint32_t metric )
      : rpf( rpfBy( "eth0", "192.0.2.254", 110, metric ) ) {
      vrf.pimIntf( "lan", address );
      sg.rpf( rpf ).spTree().upJoined().katExpired( false );
      wc.rpf( rpf );
   }

   Vrf vrf;
   Rpf rpf;
   RouteBuilder sg = vrf.sg( kSource, kGroup );
   RouteBuilder wc = vrf.wc( kGroup );
   IntfBuilder lan = sg.intf( "lan" );
   IntfBuilder wcLan = wc.intf( "lan" );
};

struct Lan : testing::Test {
   Router near{ "192.0.2.1", 10 };
   Router far{ "192.0.2.9", 20 };
};

TEST_F( Lan, SourceAssertFromBothWinningToOneLoserAndBack ) {
   near.lan.joined();
   far.lan.joined();
   const AssertMetric nears = near.lan->myAssertMetricSg();
   const AssertMetric fars = far.lan->myAssertMetricSg();
   EXPECT_EQ( valueToStrep( nears ), "[S] 192.0.2.1 [110/10]" );
   EXPECT_EQ( valueToStrep( fars ), "[S] 192.0.2.9 [110/20]" );

   // Data of each arrives at the other: both assert and, so far, win.
   near.lan.wonAssert( valueToStrep( nears ) );
   far.lan.wonAssert( valueToStrep( fars ) );
   EXPECT_EQ( answers( *near.lan ), "CTIO" );
   EXPECT_EQ( answers( *far.lan ), "CTIO" );

   // The far one's assert is inferior; the answer to it is preferred.
   EXPECT_EQ( verdict( *near.lan, fars ), "I" );
   EXPECT_EQ( verdict( *far.lan, nears ), "PA" );
   far.lan.lostAssert( valueToStrep( nears ) );
   EXPECT_EQ( answers( *near.lan ), "CTIO" );
   EXPECT_EQ( answers( *far.lan ), "CTL" );
   EXPECT_TRUE( far.lan->lostAssertSgRpt() );
   EXPECT_FALSE( far.sg->joinDesiredSg() );
   EXPECT_TRUE( near.sg->joinDesiredSg() );
   // Repeated, it is acceptable and changes nothing.
   EXPECT_EQ( verdict( *far.lan, nears ), "A" );

   // The winner's path goes: it cannot assert, and cancels.
   near.sg.spTree( false ).upJoined( false );
   const AssertMetric cancel = near.lan->myAssertMetricSg();
   EXPECT_TRUE( !cancel );
   EXPECT_EQ( verdict( *near.lan, fars ), "A" );
   EXPECT_EQ( verdict( *far.lan, cancel ), "I" );
   far.lan.noAssert();
   near.lan.noAssert();
   EXPECT_EQ( answers( *near.lan ), "TIO" );
   EXPECT_EQ( answers( *far.lan ), "CTIO" );
   EXPECT_TRUE( far.sg->joinDesiredSg() );

   // The path comes back: as at the start.
   near.sg.spTree().upJoined();
   EXPECT_EQ( near.lan->myAssertMetricSg(), nears );
   EXPECT_EQ( answers( *near.lan ), "CTIO" );
}

TEST_F( Lan, SharedTreeAssertSilencesTheLosersSources ) {
   near.wcLan.joined();
   far.wcLan.joined();
   const AssertMetric nears = near.wcLan->myAssertMetricWc();
   EXPECT_EQ( valueToStrep( nears ), "[R] 192.0.2.1 [110/10]" );
   near.wcLan.wonAssert( valueToStrep( nears ) );
   EXPECT_EQ( verdict( *far.wcLan, nears ), "PA" );
   EXPECT_EQ( verdict( *near.wcLan, far.wcLan->myAssertMetricWc() ), "I" );
   EXPECT_EQ( answers( *far.lan ), "CTO" );

   far.wcLan.lostAssert( valueToStrep( nears ) );
   EXPECT_TRUE( far.wcLan->lostAssertWc() );
   EXPECT_FALSE( far.wcLan->immediateOlistWc() );
   EXPECT_FALSE( far.wc->joinDesiredWc() );
   EXPECT_EQ( answers( *far.lan ), "" );
   EXPECT_EQ( answers( *near.lan ), "CTO" );
   // Its own (S,G) join brings the traffic back to the LAN, but no assert.
   far.lan.joined();
   EXPECT_EQ( answers( *far.lan ), "IO" );
   EXPECT_EQ( far.lan->myAssertMetricSg(), far.wcLan->myAssertMetricWc() );
   // An assert for the source comes from the near one, and is better than that.
   EXPECT_EQ( verdict( *far.lan, near.lan->myAssertMetricSg() ), "PA" );

   far.wcLan.noAssert();
   EXPECT_EQ( answers( *far.lan ), "CTIO" );
   EXPECT_TRUE( far.wcLan->immediateOlistWc() );
}

}
}
