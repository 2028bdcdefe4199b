#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "platform/net/IntfId.h"
#include "platform/net/VrfName.h"
#include "tests/support/ErrorText.h"

namespace Vantu {
namespace {

TEST( IntfId, OrdersByNameWhateverCameFirst ) {
   IntfId late( "test-b" );
   IntfId early( "test-a" );
   EXPECT_LT( early, late );
   EXPECT_LT( IntfId(), early );
   EXPECT_EQ( IntfId( "test-b" ), late );
   EXPECT_EQ( IntfId( "" ), IntfId() );
}

TEST( IntfId, NamesStayWhereTheyAre ) {
   Mox::StringView first = IntfId( "test-stays" ).name();
   std::vector<IntfId> many;
   for ( int i = 0; i < 5000; ++i ) {
      many.emplace_back( "test-many" + std::to_string( i ) );
   }
   EXPECT_EQ( first.data(), IntfId( "test-stays" ).name().data() );
   EXPECT_EQ( many[4321].name(), "test-many4321" );
}

TEST( IntfId, TextIsQuotedAndReadBack ) {
   for ( const char* name : { "", "eth0", "it's", "a\\b\n\x01" } ) {
      IntfId intf{ Mox::StringView( name ) };
      EXPECT_EQ( Mox::stringToValue<IntfId>( valueToStrep( intf ) ), intf );
   }
   EXPECT_EQ( valueToStrep( IntfId( "it's" ) ), R"('it\'s')" );
   EXPECT_THROW( Mox::stringToValue<IntfId>( "eth0" ), Mox::ParseError );
}

TEST( IntfId, RefusesWhatARecordCannotHold ) {
   EXPECT_EQ( IntfId( Mox::String( 31, 'x' ) ).name().size(), 31u );
   EXPECT_THROW( IntfId( Mox::String( 32, 'x' ) ), Mox::RangeError );
   EXPECT_THROW( IntfId( Mox::StringView( "a\0b", 3 ) ), Mox::RangeError );
   EXPECT_THROW( Mox::stringToValue<IntfId>( "'" + Mox::String( 32, 'x' ) + "'" ),
                 Mox::RangeError );
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
