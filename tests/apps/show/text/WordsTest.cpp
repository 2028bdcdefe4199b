#include "apps/show/text/Words.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/VrfBuilder.h"

namespace Show {
namespace {

TEST( Words, SpansHaveTwoUnitsAtMost ) {
   constexpr double kInfinity = std::numeric_limits<double>::infinity();
   const std::pair<double, const char*> rows[] = {
      { 0, "0s" },
      { 0.99, "0s" },
      { 59.99, "59s" },
      { 60, "1m" },
      { 61, "1m1s" },
      { 3599, "59m59s" },
      { 3600, "1h" },
      { 3659, "1h" },
      { 7800, "2h10m" },
      { 86399, "23h59m" },
      { 86400, "1d" },
      { 4 * 86400 + 3 * 3600 + 59 * 60, "4d3h" },
      { 1000 * 86400.0, "1000d" },
      { -1, "0s" },
      { -kInfinity, "0s" },
      { std::nan( "" ), "0s" } };
   for ( const auto& [seconds, text] : rows ) {
      EXPECT_EQ( spanText( seconds ), text ) << seconds;
   }
   EXPECT_EQ( spanText( kInfinity ), spanText( 1e300 ) ) << "whatever it says";
}

TEST( Words, NamesDoNotCommandTheTerminal ) {
   EXPECT_EQ( nameText( Vantu::IntfId( "e\x1b[2J\n" ) ), "e\\x1b[2J\\x0a" );
}

TEST( Words, TimeZeroIsNever ) {
   EXPECT_EQ( agoText( 0, 100 ), "never" );
   EXPECT_EQ( agoText( 40, 100 ), "1m ago" );
   EXPECT_EQ( agoText( 101, 100 ), "0s ago" );
}

TEST( Words, WhyAnInterfaceDoesNotForwardIsNotTakenForWhyItWould ) {
   using namespace Routing::Pim::SparseMode::Test;
   Vrf vrf;
   auto wc = vrf.wc( "239.1.2.3" );
   auto sg = vrf.sg( "198.51.100.7", "239.1.2.3" ).rpTree();
   wc.intf( "eth1" ).joined();
   const auto intf = sg.intf( "eth1" );
   intf->forwardIs( true );
   EXPECT_EQ( intfReason( *intf.get(), 100 ), "inherits the (*,G) join" );
   intf->forwardIs( false );
   EXPECT_EQ( intfReason( *intf.get(), 100 ), "in spite of the (*,G) join" );
   wc.intf( "eth1" ).lostAssertTo( "192.0.2.66" );
   EXPECT_EQ( intfReason( *intf.get(), 100 ), "(*,G) assert lost to 192.0.2.66" );
   intf->lastRptPruneReceivedIs( 40 );
   intf->rptStateIs( Intf::rptPrunePending );
   EXPECT_EQ( intfReason( *intf.get(), 100 ), "source prune pending, last 1m ago" );
   intf->rptStateIs( Intf::rptPruned );
   EXPECT_EQ( intfReason( *intf.get(), 100 ), "source pruned 1m ago" );
}

TEST( Words, APathIsNamedByWhatIsKnownOfIt ) {
   using Routing::Pim::SparseMode::Test::rpfBy;
   EXPECT_EQ( rpfText( Rpf(), false ), "unresolved" );
   EXPECT_EQ( rpfText( rpfBy( "eth0", "192.0.2.1" ), false ),
              "eth0 via 192.0.2.1" );
   EXPECT_EQ( rpfText( rpfBy( "eth0", "192.0.2.1" ), true ), "eth0, attached" );
}

}
}
