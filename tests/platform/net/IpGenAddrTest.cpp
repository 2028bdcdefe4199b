#include "platform/net/IpGenAddr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <unordered_set>

namespace Vantu {
namespace {

using Mox::StringIter;

IpGenAddr addr( const char* text ) {
   return IpGenAddr( Mox::StringView( text ) );
}

TEST( IpGenAddr, OrdersByFamilyThenBytesInNetworkOrder ) {
   const char* ordered[] = { "0.0.0.0",   "1.2.3.4", "1.2.4.3", "2.0.0.0",
                             "255.0.0.1", "::",      "::1",     "1::" };
   for ( size_t i = 0; i < std::size( ordered ); ++i ) {
      for ( size_t j = 0; j < std::size( ordered ); ++j ) {
         EXPECT_EQ( addr( ordered[i] ) < addr( ordered[j] ), i < j )
            << ordered[i] << " " << ordered[j];
         EXPECT_EQ( addr( ordered[i] ) == addr( ordered[j] ), i == j );
      }
   }
}

TEST( IpGenAddr, UnspecifiedIsOnlyThatOfItsFamily ) {
   EXPECT_TRUE( addr( "::" ).isUnspecified() );
   EXPECT_TRUE( IpGenAddr().isUnspecified() );
   EXPECT_FALSE( addr( "::1" ).isUnspecified() );
   EXPECT_EQ( IpGenAddr(), addr( "0.0.0.0" ) );
   EXPECT_EQ( IpGenAddr::unspecified( AddressFamily::ipv6 ), addr( "::" ) );
   IpGenAddr other = IpGenAddr::unspecified( static_cast<AddressFamily>( 7 ) );
   EXPECT_NE( other, addr( "0.0.0.0" ) );
   EXPECT_NE( other, addr( "::" ) );
   EXPECT_EQ( valueToStrep( other ), "family7" );
}

TEST( IpGenAddr, TextIsReadBackAndOnlyItsOwnCharacters ) {
   for ( const char* text :
         { "192.0.2.1", "0.0.0.0", "::", "2001:db8::1", "::ffff:192.0.2.1" } ) {
      Mox::String nested = Mox::String( text ) + ", 'next'";
      StringIter begin = nested.c_str();
      IpGenAddr read;
      sequenceToValue( begin, begin + nested.size(), read );
      EXPECT_STREQ( begin, ", 'next'" );
      EXPECT_EQ( valueToStrep( read ), text );
   }
   EXPECT_EQ( valueToStrep( addr( "2001:DB8:0:0::1" ) ), "2001:db8::1" );
}

TEST( IpGenAddr, RefusesWhatIsNoAddress ) {
   for ( const char* text : { "", "1.2.3", "1.2.3.4.5", "1.2.3.256", "01.2.3.4",
                              "1.2.3.4 ", " 1.2.3.4", "1:2", "::1::2", "12345::",
                              "eth0", "fe80::1%eth0", "1.2.3.4/8", "::1.2.3" } ) {
      EXPECT_THROW( addr( text ), Mox::ParseError ) << text;
   }
}

TEST( IpGenAddr, MulticastRanges ) {
   struct Row {
      const char* address;
      bool multicast;
      bool linkLocal;
   };
   for ( const Row& row : { Row{ "223.255.255.255", false, false },
                            { "224.0.0.0", true, true },
                            { "224.0.0.255", true, true },
                            { "224.0.1.0", true, false },
                            { "224.1.0.0", true, false },
                            { "239.255.255.255", true, false },
                            { "240.0.0.0", false, false },
                            { "ff02::1", true, true },
                            { "ff01::1", true, true },
                            { "ff32::1", true, true },
                            { "ff05::2", true, false },
                            { "ff0e::1", true, false },
                            { "fe02::1", false, false } } ) {
      EXPECT_EQ( addr( row.address ).isMulticast(), row.multicast ) << row.address;
      EXPECT_EQ( addr( row.address ).isLinkLocalMulticast(), row.linkLocal )
         << row.address;
   }
   EXPECT_TRUE( addr( "169.254.1.1" ).isLinkLocal() );
   EXPECT_TRUE( addr( "febf::1" ).isLinkLocal() );
   EXPECT_FALSE( addr( "fec0::1" ).isLinkLocal() );
}

// Dense and sparse neighbours, as sources and groups are: no two hashes alike, and
// no bunching in the low bits, which open hash tables use.
TEST( IpGenAddr, HashSpreadsNeighbours ) {
   constexpr uint32_t kCount = 1 << 14;
   std::set<size_t> whole;
   std::unordered_set<size_t> low;
   for ( uint32_t i = 0; i < kCount; ++i ) {
      const uint8_t bytes[16] = {
         0x20,        1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, uint8_t( i >> 8 ),
         uint8_t( i ) };
      IpGenAddr v6 = IpGenAddr::fromBytes( AddressFamily::ipv6, bytes );
      IpGenAddr v4 = IpGenAddr( in_addr{ htonl( 0xe9fc0000 + i ) } );
      whole.insert( { v6.hash(), v4.hash() } );
      low.insert( v4.hash() % kCount );
      low.insert( v6.hash() % kCount );
   }
   EXPECT_EQ( whole.size(), 2 * kCount );
   // 32768 balls at random in 16384 bins leave about 86 % of these not empty.
   EXPECT_GT( low.size(), kCount * 8 / 10 );
}

}
}
