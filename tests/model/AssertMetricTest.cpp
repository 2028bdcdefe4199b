#include <gtest/gtest.h>

#include "tests/support/ErrorText.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::Test::assertionText;
using Mox::Test::errorText;

struct Row {
   const char* rule;
   const char* better;
   const char* worse;
};

// In each row the later items point the other way.
constexpr Row kBetter[] = {
   { "sptBeatsRpt", "[S] 192.0.2.2 [200/20]", "[R] 192.0.2.9 [1/1]" },
   { "lowerPreference", "[S] 192.0.2.2 [90/20]", "[S] 192.0.2.9 [110/1]" },
   { "lowerMetric", "[R] 192.0.2.2 [110/10]", "[R] 192.0.2.9 [110/20]" },
   { "metricAsNumber", "[R] 192.0.2.2 [110/9]", "[R] 192.0.2.9 [110/4294967295]" },
   { "higherAddress", "[S] 192.0.2.10 [110/20]", "[S] 192.0.2.9 [110/20]" },
   { "ipv6AboveIpv4", "[S] 2001:db8::1 [110/20]", "[S] 192.0.2.9 [110/20]" },
   { "rptBeatsInfinite", "[R] 192.0.2.2 [1/20]",
     "[R] 0.0.0.0 [2147483647/4294967295]" },
};

TEST( AssertMetricOrder, FirstDifferenceDecides ) {
   for ( const Row& row : kBetter ) {
      SCOPED_TRACE( row.rule );
      const AssertMetric better = assertMetric( row.better );
      const AssertMetric worse = assertMetric( row.worse );
      EXPECT_TRUE( better < worse );
      EXPECT_FALSE( worse < better );
      EXPECT_FALSE( better < better );
      EXPECT_FALSE( better == worse );
   }
}

TEST( AssertMetricValue, InfiniteOnlyWithAllFourItems ) {
   EXPECT_TRUE( !AssertMetric() );
   for ( const char* text : { "[S] 0.0.0.0 [2147483647/4294967295]",
                              "[R] 0.0.0.0 [2147483646/4294967295]",
                              "[R] 0.0.0.0 [2147483647/4294967294]",
                              "[R] :: [2147483647/4294967295]" } ) {
      EXPECT_FALSE( !assertMetric( text ) ) << text;
   }
}

TEST( AssertMetricText, ReadsWhatItPrints ) {
   for ( const char* text : { "[S] 10.1.1.2 [110/20]", "[R] 2001:db8::1 [0/0]",
                              "[R] 0.0.0.0 [2147483647/4294967295]" } ) {
      EXPECT_EQ( valueToStrep( assertMetric( text ) ), text );
   }
   EXPECT_EQ( valueToStrep( AssertMetric() ),
              "[R] 0.0.0.0 [2147483647/4294967295]" );
   EXPECT_TRUE( assertMetric( "[X] 10.0.0.1 [1/10]" ).rptBit );
}

TEST( AssertMetricText, FewerThanFourItemsAreFatal ) {
   for ( const char* text :
         { "", "[", "[S", "[S]", "[S] ", "[S] 10.0.0.1", "[S] 10.0.0.1 [",
           "[S] 10.0.0.1 [1", "[S] 10.0.0.1 [1/", "[S] 10.0.0.1 [1/x]",
           "[S] 10.0.0.1 [-1/2]", "[SR] 10.0.0.1 [1/2]", "S 10.0.0.1 [1/2]",
           "S] 10.0.0.1 [1/2]", "[S]  [1/2]", "[S] 10.0.0.1 [/2]",
           "[S] 10.0.0.1 [1/-2]" } ) {
      EXPECT_EQ( assertionText( [&] { assertMetric( text ); } ), "matches == 4" )
         << text;
   }
   // A text may end anywhere, whatever stands behind it.
   const Mox::StringView whole = "[S] 10.0.0.1 [1/2]";
   for ( size_t size = 0; size < whole.size(); ++size )
      EXPECT_EQ( hasMetricItems( whole.substr( 0, size ) ),
                 size == whole.size() - 1 )
         << size;
}

TEST( AssertMetricText, RefusesWhatIsOutOfRangeOrNoAddress ) {
   for ( const char* text :
         { "[S] 10.0.0.1 [2147483648/10]", "[S] 10.0.0.1 [4294967295/10]",
           "[S] 10.0.0.1 [99999999999999999999999/10]" } ) {
      EXPECT_EQ( errorText<Mox::RangeError>( [&] { assertMetric( text ); } ),
                 "AssertMetricPreference::value < AssertMetricPreference::min "
                 "or > AssertMetricPreference::max not allowed" );
   }
   EXPECT_THROW( assertMetric( "[S] 10.0.0.1 [1/4294967296]" ), Mox::RangeError );
   EXPECT_THROW( assertMetric( "[S] ten [1/10]" ), Mox::ParseError );
   EXPECT_THROW( assertMetric( "[S] 10.0.0.1 [1/10] " ), Mox::ParseError );
}

TEST( AssertInfoText, ReadsWhatItPrintsAndNamesTheFieldThatFails ) {
   const AssertInfo info{ iAmAssertLoser, assertMetric( "[S] 10.1.1.2 [110/20]" ) };
   const Mox::String text =
      "Value('Routing::Pim::SparseMode::AssertInfo', ** {'assertState': "
      "iAmAssertLoser, 'assertWinnerMetric': [S] 10.1.1.2 [110/20]})";
   EXPECT_EQ( valueToStrep( info ), text );
   EXPECT_EQ( Mox::stringToValue<AssertInfo>( text ), info );
   EXPECT_EQ( Mox::stringToValue<AssertInfo>( valueToStrep( AssertInfo() ) ),
              AssertInfo() );

   auto failure = [&]( const Mox::String& part, const Mox::String& instead ) {
      Mox::String broken = text;
      broken.replace( broken.find( part ), part.size(), instead );
      return errorText<Mox::Error>(
         [&] { Mox::stringToValue<AssertInfo>( broken ); } );
   };
   EXPECT_EQ( failure( "iAmAssertLoser", "iAmLost" ).find( "assertState: " ), 0U );
   EXPECT_EQ( failure( "10.1.1.2", "ten" ).find( "assertWinnerMetric: " ), 0U );
   EXPECT_EQ( failure( "110", "2147483648" ).find( "assertWinnerMetric: Assert" ),
              0U );
   EXPECT_NE( failure( "'assertWinnerMetric'", "'winner'" ), "" );
}

TEST( AssertInfoText, ABrokenOneLeavesTheRecordAsItWas ) {
   Vrf vrf;
   auto intf = vrf.wc( "233.252.0.1" ).intf( "eth1" ).lostAssertTo( "192.0.2.9" );
   EXPECT_EQ( assertionText( [&] {
                 intf->attributeTextIs(
                    "assertInfo",
                    "Value('Routing::Pim::SparseMode::AssertInfo', ** "
                    "{'assertState': iAmAssertWinner, 'assertWinnerMetric': " );
              } ),
              "matches == 4" );
   EXPECT_EQ( intf->assertInfo().assertState, iAmAssertLoser );
}

}
}
