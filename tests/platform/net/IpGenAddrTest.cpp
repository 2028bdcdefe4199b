#include "platform/net/IpGenAddr.h"
#include "tests/platform/net/Addr.h"

#include <gtest/gtest.h>

#include <set>

namespace Vantu {
namespace {

TEST( IpGenAddr, OrdersByFamilyThenBytesInNetworkOrder ) {
   const char* ordered[] = { "0.0.0.0",   "1.2.3.4", "1.2.4.3", "2.0.0.0",
                             "255.0.0.1", "::",      "::1",     "1::" };
   for ( size_t i = 0; i < std::size( ordered ); ++i ) {
      for ( size_t j = 0; j < std::size( ordered ); ++j ) {
         EXPECT_EQ( addr( ordered[i] ) < addr( ordered[j] ), i < j )
            << ordered[i] << " " << ordered[j];
         EXPECT_EQ( addr( ordered[i] ) == addr( ordered[j] ), i == j );
      }
      EXPECT_EQ( addr( ordered[i] ).isUnspecified(), i == 0 || i == 5 );
      EXPECT_EQ( valueToStrep( addr( ordered[i] ) ), ordered[i] );
   }
   EXPECT_EQ( valueToStrep( addr( "2001:DB8:0:0::1" ) ), "2001:db8::1" );
   IpGenAddr other = IpGenAddr::unspecified( static_cast<AddressFamily>( 7 ) );
   EXPECT_NE( other, addr( "0.0.0.0" ) );
   EXPECT_EQ( valueToStrep( other ), "family7" );
}

TEST( IpGenAddr, RefusesWhatIsNoAddress ) {
   for ( const char* text : { "", "1.2.3", "1.2.3.4.5", "1.2.3.256", "01.2.3.4",
                              "1.2.3.4 ", " 1.2.3.4", "1:2", "::1::2",
                              "12345::", "eth0", "fe80::1%eth0", "::1.2.3" } )
      EXPECT_THROW( addr( text ), Mox::ParseError ) << text;
}

TEST( IpGenAddr, MulticastAndLinkLocalRanges ) {
   enum Kind { unicast, linkLocal, linkMulticast, multicast };
   for ( auto [text, kind] : { std::pair( "223.255.255.255", unicast ),
                               { "224.0.0.0", linkMulticast },
                               { "224.0.0.255", linkMulticast },
                               { "224.0.1.0", multicast },
                               { "224.1.0.0", multicast },
                               { "239.255.255.255", multicast },
                               { "240.0.0.0", unicast },
                               { "169.254.1.1", linkLocal },
                               { "169.253.1.1", unicast },
                               { "ff02::1", linkMulticast },
                               { "ff00::1", linkMulticast },
                               { "ff01::1", linkMulticast },
                               { "ff32::1", linkMulticast },
                               { "ff05::2", multicast },
                               { "ff0e::1", multicast },
                               { "fe02::1", unicast },
                               { "febf::1", linkLocal },
                               { "fec0::1", unicast } } ) {
      EXPECT_EQ( addr( text ).isMulticast(), kind >= linkMulticast ) << text;
      EXPECT_EQ( addr( text ).isLinkLocalMulticast(), kind == linkMulticast )
         << text;
      EXPECT_EQ( addr( text ).isLinkLocal(), kind == linkLocal ) << text;
   }
}

// Dense and sparse neighbours, as sources and groups are: no two hashes are equal,
// and the low bits, which open hash tables use, are spread.
TEST( IpGenAddr, HashSpreadsNeighbours ) {
   constexpr uint32_t kCount = 1 << 14;
   std::set<size_t> whole, low;
   for ( uint32_t i = 0; i < kCount; ++i ) {
      uint8_t bytes[16] = { 0x20, 1, 0xd, 0xb8 };
      bytes[14] = uint8_t( i >> 8 );
      bytes[15] = uint8_t( i );
      IpGenAddr v6 = IpGenAddr::fromBytes( AddressFamily::ipv6, bytes );
      IpGenAddr v4 = IpGenAddr( in_addr{ htonl( 0xe9fc0000 + i ) } );
      whole.insert( { v6.hash(), v4.hash() } );
      low.insert( { v4.hash() % kCount, v6.hash() % kCount } );
   }
   EXPECT_EQ( whole.size(), 2 * kCount );
   // 32768 balls at random in 16384 bins leave about 86 % of these not empty.
   EXPECT_GT( low.size(), kCount * 8 / 10 );
}

}
}
