#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "platform/net/IntfId.h"
#include "platform/net/VrfName.h"
#include "tests/support/ErrorText.h"

namespace Vantu {
namespace {

TEST( IntfId, OrdersByNameAndNamesStayWhereTheyAre ) {
   IntfId late( "test-b" ), early( "test-a" );
   EXPECT_LT( early, late );
   EXPECT_LT( IntfId(), early );
   EXPECT_EQ( IntfId( "test-b" ), late );
   EXPECT_EQ( IntfId( "" ), IntfId() );
   Mox::StringView name = early.name();
   for ( int i = 0; i < 5000; ++i )
      EXPECT_GT( IntfId( "test-many" + std::to_string( i ) ), late );
   EXPECT_EQ( name.data(), IntfId( "test-a" ).name().data() );
}

TEST( IntfId, TextIsQuotedAndHoldsWhatARecordCan ) {
   EXPECT_EQ( valueToStrep( IntfId( "it's" ) ), R"('it\'s')" );
   EXPECT_THROW( Mox::stringToValue<IntfId>( "eth0" ), Mox::ParseError );
   EXPECT_EQ( IntfId( Mox::String( 31, 'x' ) ).name().size(), 31u );
   EXPECT_THROW( IntfId( Mox::String( 32, 'x' ) ), Mox::RangeError );
   EXPECT_THROW( IntfId( Mox::StringView( "a\0b", 3 ) ), Mox::RangeError );
}

TEST( VrfName, QuotedAsTextBareInAStreamAndBounded ) {
   L3::VrfName vrf( "red 'one'" );
   std::ostringstream stream;
   stream << vrf;
   EXPECT_EQ( stream.str(), "red 'one'" );
   EXPECT_EQ( Mox::stringToValue<L3::VrfName>( valueToStrep( vrf ) ), vrf );
   EXPECT_NO_THROW( L3::VrfName( Mox::String( 100, 'x' ) ) );
   EXPECT_EQ( Mox::Test::errorText<Mox::RangeError>(
                 [] { L3::VrfName tooLong( Mox::String( 101, 'x' ) ); } ),
              "VrfName::bytes > VrfName::maxLength not allowed" );
}

}
}
