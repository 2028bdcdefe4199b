#include <gtest/gtest.h>

#include "tests/support/ModelRecorders.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using RouteFlags = Route::RouteFlags;

class RouteFlagsOfRoute : public testing::Test {
 protected:
   Vrf vrf;
   RouteBuilder route = vrf.sg( "192.0.2.1", "233.252.0.1" );
   RouteRecorder recorder{ route.get() };

   // The word that the fifteen views add up to.
   uint32_t wordOfViews() const {
      uint32_t word = 0;
      unsigned bit = 0;
#define VIEW_BIT( X, name, Name, letter, initial, meaning ) \
   word |= static_cast<uint32_t>( route->name() ) << bit++;
      PIMSM_EACH_ROUTE_FLAG( VIEW_BIT, )
#undef VIEW_BIT
      return word;
   }
};

TEST_F( RouteFlagsOfRoute, AChangedWordNotifiesItsViewsInBitOrderAndThenItself ) {
   route->routeFlagsIs( RouteFlags( 0x2005 ) );  // katExpired goes as well
   EXPECT_EQ( recorder.take(), ( Heard{ "rpTree", "spTree", "katExpired",
                                        "programmable", "routeFlags" } ) );
   route->routeFlagsIs( RouteFlags( 0x2005 ) );
   EXPECT_EQ( recorder.take(), Heard{} );
}

TEST_F( RouteFlagsOfRoute, AChangedViewNotifiesTheWordAndThenItself ) {
   route->spTreeIs( true );
   route->spTreeIs( true );
   EXPECT_EQ( route->routeFlags(), RouteFlags( 0x44 ) );
   EXPECT_EQ( recorder.take(), ( Heard{ "routeFlags", "spTree" } ) );
}

TEST_F( RouteFlagsOfRoute, EachViewStandsForItsOwnBit ) {
   for ( unsigned bit = 0; bit < RouteFlags::flagCount; ++bit ) {
      route->routeFlagsIs( RouteFlags( 1U << bit ) );
      EXPECT_EQ( wordOfViews(), 1U << bit ) << RouteFlags::rows()[bit].name;
   }
   route->routeFlagsIs( RouteFlags() );
   route->hwRecoveredIs( true );
   route->rpTreeIs( true );
   EXPECT_EQ( route->routeFlags(), RouteFlags( 0x4001 ) );
}

// At every notification word and views must agree on the changes notified so far,
// and at the end completely, whichever was changed last.
TEST_F( RouteFlagsOfRoute, AWordWrittenInsideANotificationStandsWhole ) {
   recorder.inside = [&]( const Mox::String& what ) {
      if ( what == "wildCard" ) route->routeFlagsIs( RouteFlags( 0x0200 ) );
   };
   route->routeFlagsIs( RouteFlags( 0x4043 ) );
   EXPECT_EQ( route->routeFlags(), RouteFlags( 0x0200 ) );
   EXPECT_EQ( wordOfViews(), 0x0200U );
}

TEST_F( RouteFlagsOfRoute, AViewTakenBackInsideItsOwnNotificationStaysBack ) {
   recorder.inside = [&]( const Mox::String& what ) {
      if ( what == "routeFlags" ) route->spTreeIs( false );
   };
   route->spTreeIs( true );
   EXPECT_EQ( route->routeFlags(), RouteFlags( 0x40 ) );
   EXPECT_EQ( wordOfViews(), 0x40U );
}

TEST_F( RouteFlagsOfRoute, LettersHaveTheirOwnOrder ) {
   EXPECT_EQ( route->routeFlagsString(), "E" );
   vrf.sg( "192.0.2.1", "233.252.0.1" ).attached().mbr( "" );
   EXPECT_EQ( route->routeFlagsString(), "LBE" );
   route->routeFlagsIs( RouteFlags( 0x7ff7 ) );
   EXPECT_EQ( route->routeFlagsString(), "WSRTLBZNMACPX" );
   route->umhDel();
   EXPECT_EQ( route->routeFlagsString(), "WSRTBZNMACPX" );
   route->routeFlagsIs( RouteFlags( 0x0002 ) );
   EXPECT_EQ( route->routeFlagsString(), "W" );
   // Neither the keepalive timer nor the register interface has a letter.
   route->routeFlagsIs( RouteFlags( 0x1040 ) );
   EXPECT_EQ( route->routeFlagsString(), "E" );
}

TEST_F( RouteFlagsOfRoute, ExpiredFlagsKeepTheirCommas ) {
   EXPECT_EQ( route->expiredFlagsString(), "" );
   route->expiredFlagsIs( Route::ExpiredFlags( 6 ) );
   EXPECT_EQ( route->expiredFlagsString(), "Register,Advertise," );
   route->expiredFlagsIs( Route::ExpiredFlags( 7 ) );
   EXPECT_EQ( route->expiredFlagsString(), "ALL,Register,Advertise," );
}

TEST_F( RouteFlagsOfRoute, DiscoveredInAnyOfFourWays ) {
   uint32_t discovering = 0;
   for ( unsigned bit = 0; bit < RouteFlags::flagCount; ++bit ) {
      route->routeFlagsIs( RouteFlags( 1U << bit ) );
      if ( route->discoveredSg() ) discovering |= 1U << bit;
   }
   EXPECT_EQ( discovering, 0x4e00U );
}

}
}
