#include "platform/net/IpGenPrefix.h"

#include <gtest/gtest.h>

namespace Vantu {
namespace {

IpGenPrefix prefix( const char* text ) {
   return IpGenPrefix( Mox::StringView( text ) );
}
IpGenAddr addr( const char* text ) {
   return IpGenAddr( Mox::StringView( text ) );
}

TEST( IpGenPrefix, IsCanonical ) {
   EXPECT_EQ( prefix( "10.1.2.3/8" ), prefix( "10.0.0.0/8" ) );
   EXPECT_EQ( valueToStrep( prefix( "10.255.255.255/9" ) ), "10.128.0.0/9" );
   EXPECT_EQ( valueToStrep( prefix( "2001:db8:ffff::1/33" ) ),
              "2001:db8:8000::/33" );
   EXPECT_EQ( valueToStrep( prefix( "255.255.255.255/0" ) ), "0.0.0.0/0" );
   EXPECT_EQ( IpGenPrefix( addr( "::1" ) ), prefix( "::1/128" ) );
}

TEST( IpGenPrefix, NoneIsNotTheWholeRange ) {
   IpGenPrefix none;
   EXPECT_NE( none, prefix( "0.0.0.0/0" ) );
   EXPECT_LT( none, prefix( "0.0.0.0/0" ) );
   EXPECT_FALSE( none.contains( addr( "0.0.0.0" ) ) );
   EXPECT_FALSE( none.contains( none ) );
   EXPECT_FALSE( prefix( "0.0.0.0/0" ).contains( none ) );
   EXPECT_EQ( prefix( valueToStrep( none ).c_str() ), none );
}

TEST( IpGenPrefix, ContainsItsFamilyUpToTheLastBit ) {
   EXPECT_TRUE( prefix( "10.0.0.0/31" ).contains( addr( "10.0.0.1" ) ) );
   EXPECT_FALSE( prefix( "10.0.0.0/31" ).contains( addr( "10.0.0.2" ) ) );
   EXPECT_TRUE( prefix( "0.0.0.0/0" ).contains( addr( "255.0.0.1" ) ) );
   EXPECT_FALSE( prefix( "0.0.0.0/0" ).contains( addr( "::" ) ) );
   EXPECT_TRUE( prefix( "ff00::/8" ).contains( prefix( "ff3e::/32" ) ) );
   EXPECT_TRUE( prefix( "ff00::/8" ).contains( prefix( "ff00::/8" ) ) );
   EXPECT_FALSE( prefix( "ff00::/9" ).contains( prefix( "ff00::/8" ) ) );
}

TEST( IpGenPrefix, RefusesBadTexts ) {
   EXPECT_THROW( prefix( "10.0.0.0/33" ), Mox::RangeError );
   EXPECT_THROW( prefix( "::/129" ), Mox::RangeError );
   EXPECT_THROW( prefix( "::/300" ), Mox::RangeError );
   EXPECT_THROW( IpGenPrefix( addr( "10.0.0.0" ), 33 ), Mox::RangeError );
   IpGenAddr other = IpGenAddr::unspecified( static_cast<AddressFamily>( 7 ) );
   EXPECT_THROW( IpGenPrefix( other, 0 ), Mox::RangeError );
   for ( const char* text : { "10.0.0.0", "10.0.0.0/", "10.0.0.0/a", "/8",
                              "10.0.0.0/8x", "10.0.0.0/-1" } ) {
      EXPECT_THROW( prefix( text ), Mox::ParseError ) << text;
   }
}

TEST( IpGenPrefixSet, KeepsOverlapsApartAndIsReadBack ) {
   IpGenPrefixSet set;
   EXPECT_EQ( valueToStrep( set ), "{}" );
   EXPECT_TRUE( set.insert( prefix( "::/0" ) ) );
   EXPECT_TRUE( set.insert( prefix( "10.0.0.0/8" ) ) );
   EXPECT_TRUE( set.insert( prefix( "10.0.0.0/9" ) ) );
   EXPECT_FALSE( set.insert( prefix( "10.9.0.0/8" ) ) );
   EXPECT_EQ( valueToStrep( set ), "{10.0.0.0/8, 10.0.0.0/9, ::/0}" );
   EXPECT_EQ( Mox::stringToValue<IpGenPrefixSet>( valueToStrep( set ) ), set );
   EXPECT_EQ( Mox::stringToValue<IpGenPrefixSet>( "{}" ), IpGenPrefixSet() );
   for ( const char* text :
         { "{", "{10.0.0.0/8", "{10.0.0.0/8,::/0}", "{, ::/0}" } ) {
      EXPECT_THROW( Mox::stringToValue<IpGenPrefixSet>( text ), Mox::ParseError )
         << text;
   }
}

}
}
