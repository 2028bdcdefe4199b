#include "platform/net/IpGenPrefix.h"
#include "tests/platform/net/Addr.h"

#include <gtest/gtest.h>

namespace Vantu {
namespace {

IpGenPrefix prefix( const char* text ) {
   return IpGenPrefix( Mox::StringView( text ) );
}
TEST( IpGenPrefix, IsCanonical ) {
   for ( auto [text, canonical] : { std::pair( "10.255.255.255/9", "10.128.0.0/9" ),
                                    { "2001:db8:ffff::1/33", "2001:db8:8000::/33" },
                                    { "255.255.255.255/0", "0.0.0.0/0" },
                                    { "::1/128", "::1/128" },
                                    { "none", "none" } } ) {
      EXPECT_EQ( valueToStrep( prefix( text ) ), canonical );
      EXPECT_EQ( prefix( text ), prefix( canonical ) );
   }
   EXPECT_EQ( IpGenPrefix( addr( "::1" ) ), prefix( "::1/128" ) );
}

TEST( IpGenPrefix, ContainsItsFamilyUpToTheLastBit ) {
   EXPECT_TRUE( prefix( "10.0.0.0/31" ).contains( addr( "10.0.0.1" ) ) );
   EXPECT_FALSE( prefix( "10.0.0.0/31" ).contains( addr( "10.0.0.2" ) ) );
   EXPECT_TRUE( prefix( "0.0.0.0/0" ).contains( addr( "255.0.0.1" ) ) );
   EXPECT_FALSE( prefix( "0.0.0.0/0" ).contains( addr( "::" ) ) );
   EXPECT_TRUE( prefix( "ff00::/8" ).contains( prefix( "ff3e::/32" ) ) );
   EXPECT_TRUE( prefix( "ff00::/8" ).contains( prefix( "ff00::/8" ) ) );
   EXPECT_FALSE( prefix( "ff00::/9" ).contains( prefix( "ff00::/8" ) ) );
   // The default prefix is not the whole range.
   const IpGenPrefix none, all = prefix( "0.0.0.0/0" );
   EXPECT_LT( none, all );
   EXPECT_FALSE( none.contains( addr( "0.0.0.0" ) ) || none.contains( none ) );
   EXPECT_FALSE( all.contains( none ) );
}

TEST( IpGenPrefix, RefusesBadTexts ) {
   for ( const char* text : { "10.0.0.0/33", "::/129", "::/300" } )
      EXPECT_THROW( prefix( text ), Mox::RangeError ) << text;
   EXPECT_THROW( IpGenPrefix( addr( "10.0.0.0" ), 33 ), Mox::RangeError );
   IpGenAddr other = IpGenAddr::unspecified( static_cast<AddressFamily>( 7 ) );
   EXPECT_THROW( IpGenPrefix( other, 0 ), Mox::RangeError );
   for ( const char* text : { "10.0.0.0", "10.0.0.0/", "/8", "10.0.0.0/8x" } )
      EXPECT_THROW( prefix( text ), Mox::ParseError ) << text;
}

TEST( IpGenPrefixSet, KeepsOverlapsApartAndIsReadBack ) {
   IpGenPrefixSet set;
   for ( const char* text : { "::/0", "10.0.0.0/8", "10.0.0.0/9" } )
      EXPECT_TRUE( set.insert( prefix( text ) ) );
   EXPECT_FALSE( set.insert( prefix( "10.9.0.0/8" ) ) );
   EXPECT_TRUE( set.has( prefix( "10.9.0.0/8" ) ) );
   EXPECT_FALSE( set.has( prefix( "10.9.0.0/16" ) ) );
   EXPECT_EQ( valueToStrep( set ), "{10.0.0.0/8, 10.0.0.0/9, ::/0}" );
   for ( const IpGenPrefixSet& each : { set, IpGenPrefixSet() } )
      EXPECT_EQ( Mox::stringToValue<IpGenPrefixSet>( valueToStrep( each ) ), each );
   for ( const char* text :
         { "{", "{10.0.0.0/8", "{10.0.0.0/8,::/0}", "{, ::/0}" } )
      EXPECT_THROW( Mox::stringToValue<IpGenPrefixSet>( text ), Mox::ParseError )
         << text;
}

}
}
