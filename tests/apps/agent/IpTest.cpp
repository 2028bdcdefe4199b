#include "apps/agent/packet/Ip.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/PacketBuilder.h"

namespace Agent {
namespace {

using ByteVector = std::vector<uint8_t>;

constexpr unsigned kEtherIpv4 = 0x0800;
constexpr unsigned kEtherIpv6 = 0x86dd;
constexpr unsigned kPim = 103;
const ByteVector kPayload = { 1, 2, 3, 4 };

struct Ipv4 {
   unsigned version = 4;
   unsigned headerWords = 5;
   unsigned total = 24;
   unsigned fragment = 0x4000;  // do not fragment
};

ByteVector ipv4( const Ipv4& fields = {} ) {
   size_t options = fields.headerWords > 5 ? ( fields.headerWords - 5 ) * 4 : 0;
   return PacketBuilder()
      .u8( fields.version << 4 | fields.headerWords )
      .u8( 0 )
      .u16( fields.total )
      .u16( 7 )
      .u16( fields.fragment )
      .u8( 1 )
      .u8( kPim )
      .u16( 0 )
      .addr( "192.0.2.1" )
      .addr( "224.0.0.13" )
      .zeros( options )
      .raw( kPayload );
}

// With the extension headers, the first of which has the number `next`.
ByteVector ipv6( unsigned next = kPim, const ByteVector& extensions = {} ) {
   return PacketBuilder()
      .u32( 0x60000000 )
      .u16( static_cast<unsigned>( extensions.size() + kPayload.size() ) )
      .u8( next )
      .u8( 1 )
      .addr( "fe80::1" )
      .addr( "ff02::d" )
      .raw( extensions )
      .raw( kPayload );
}

// A decoded packet with the frame into which its payload points.
struct Decoded {
   explicit Decoded( ByteVector bytes, LinkType link = LinkType::rawIp )
      : frame( std::move( bytes ) ), reason( decodeFrame( link, frame, packet ) ) {}

   ByteVector frame;
   IpPacket packet;
   DropReason reason;
};

DropReason reasonOf( const ByteVector& packet, LinkType link = LinkType::rawIp ) {
   return Decoded( packet, link ).reason;
}

void expectPayload( const Decoded& decoded ) {
   const IpPacket& packet = decoded.packet;
   ASSERT_EQ( decoded.reason, notDropped );
   EXPECT_EQ( ByteVector( packet.payload.begin(), packet.payload.end() ),
              kPayload );
   EXPECT_EQ( packet.protocol, kPim );
   EXPECT_EQ( packet.ttl, 1 );
}

TEST( IpDecoder, LinkHeadersLeadToThePacket ) {
   ByteVector trailer = { 0xee, 0xee };  // padding to the least Ethernet frame
   struct Row {
      const char* name;
      LinkType link;
      ByteVector header;
   };
   for ( const Row& row : {
            Row{ "ethernet", LinkType::ethernet,
                 PacketBuilder().zeros( 12 ).u16( kEtherIpv4 ) },
            Row{ "tagged", LinkType::ethernet,
                 PacketBuilder().zeros( 12 ).u16( 0x8100 ).u16( 5 ).u16(
                    kEtherIpv4 ) },
            Row{ "tagged twice", LinkType::ethernet,
                 PacketBuilder()
                    .zeros( 12 )
                    .u16( 0x88a8 )
                    .u16( 5 )
                    .u16( 0x8100 )
                    .u16( 6 )
                    .u16( kEtherIpv4 ) },
            Row{ "cooked", LinkType::linuxCooked,
                 PacketBuilder().zeros( 14 ).u16( kEtherIpv4 ) },
            Row{ "cooked 2", LinkType::linuxCooked2,
                 PacketBuilder().u16( kEtherIpv4 ).zeros( 18 ) },
            Row{ "raw", LinkType::rawIp, {} },
         } ) {
      SCOPED_TRACE( row.name );
      Decoded decoded(
         PacketBuilder().raw( row.header ).raw( ipv4() ).raw( trailer ), row.link );
      expectPayload( decoded );
      EXPECT_EQ( decoded.packet.source, Vantu::IpGenAddr( "192.0.2.1" ) );
   }
   EXPECT_EQ( reasonOf( ipv4(), LinkType::unknown ), unknownLink );
   ByteVector arp = PacketBuilder().zeros( 12 ).u16( 0x0806 ).zeros( 28 );
   EXPECT_EQ( reasonOf( arp, LinkType::ethernet ), notIp );
   ByteVector mixed =
      PacketBuilder().zeros( 12 ).u16( kEtherIpv6 ).raw( ipv4() ).zeros( 20 );
   EXPECT_EQ( reasonOf( mixed, LinkType::ethernet ), badIpHeader );
}

TEST( IpDecoder, Ipv4HeadersThatContradictThemselves ) {
   expectPayload( Decoded( ipv4( { .headerWords = 7, .total = 32 } ) ) );
   EXPECT_EQ( reasonOf( ipv4( { .version = 5 } ) ), badIpHeader );
   EXPECT_EQ( reasonOf( ipv4( { .headerWords = 4 } ) ), badIpHeader );
   EXPECT_EQ( reasonOf( ipv4( { .headerWords = 7, .total = 27 } ) ), badIpHeader );
   EXPECT_EQ( reasonOf( ipv4( { .total = 25 } ) ), truncatedCapture );
   EXPECT_EQ( reasonOf( ipv4( { .fragment = 0x2000 } ) ), fragment );
   EXPECT_EQ( reasonOf( ipv4( { .fragment = 1 } ) ), fragment );
}

TEST( IpDecoder, Ipv6ExtensionHeadersAreSkipped ) {
   constexpr unsigned kHopByHop = 0;
   constexpr unsigned kRouting = 43;
   constexpr unsigned kFragment = 44;
   constexpr unsigned kDestination = 60;
   Decoded plain( ipv6() );
   expectPayload( plain );
   EXPECT_EQ( plain.packet.destination, Vantu::IpGenAddr( "ff02::d" ) );

   ByteVector chain = PacketBuilder()
                         .u8( kDestination )
                         .u8( 0 )
                         .zeros( 6 )  // hop-by-hop
                         .u8( kRouting )
                         .u8( 2 )
                         .zeros( 22 )  // destination
                         .u8( kFragment )
                         .u8( 0 )
                         .zeros( 6 )  // routing
                         .u8( kPim )
                         .u8( 0 )
                         .u16( 0 )
                         .u32( 9 );  // the whole packet
   expectPayload( Decoded( ipv6( kHopByHop, chain ) ) );

   auto fragmentHeader = []( unsigned offsetAndMore ) {
      return ipv6(
         kFragment,
         PacketBuilder().u8( kPim ).u8( 0 ).u16( offsetAndMore ).u32( 9 ) );
   };
   EXPECT_EQ( reasonOf( fragmentHeader( 1 ) ), fragment );
   EXPECT_EQ( reasonOf( fragmentHeader( 8 ) ), fragment );
   EXPECT_EQ( reasonOf( fragmentHeader( 6 ) ), notDropped ) << "reserved bits";
   // Longer than the packet, and cut off within its first bytes.
   EXPECT_EQ( reasonOf( ipv6( kHopByHop,
                              PacketBuilder().u8( kPim ).u8( 255 ).zeros( 6 ) ) ),
              badIpHeader );
   EXPECT_EQ( reasonOf( ipv6( kHopByHop ) ), badIpHeader );
   // An endless chain ends with the packet.
   EXPECT_EQ( reasonOf( ipv6( kHopByHop, ByteVector( 800 ) ) ), badIpHeader );
}

}
}
