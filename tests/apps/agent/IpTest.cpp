#include "apps/agent/packet/Ip.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/PacketBuilder.h"

namespace Agent {
namespace {

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
      .hex( "01 67 0000" )  // time to live, PIM
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

TEST( IpDecoder, VlansAreInterfacesOfTheirOwn ) {
   auto isOf = []( const char* behindMacs, LinkType link = LinkType::ethernet ) {
      const ByteVector frame = PacketBuilder().zeros( 12 ).hex( behindMacs );
      return isOfVlan( link, frame );
   };
   EXPECT_TRUE( isOf( "8100 0005 0800" ) );
   EXPECT_TRUE( isOf( "88a8 e000 8100 0006 0800" ) );
   EXPECT_FALSE( isOf( "8100 e000 0800" ) ) << "only a priority";
   EXPECT_FALSE( isOf( "0800 4500" ) );
   EXPECT_FALSE( isOf( "8100" ) );
   EXPECT_FALSE( isOf( "8100 0005", LinkType::rawIp ) );
}

TEST( IpDecoder, LinkHeadersLeadToThePacket ) {
   ByteVector trailer = { 0xee, 0xee };  // padding to the least Ethernet frame
   const ByteVector macs( 12 );
   struct Row {
      const char* name;
      LinkType link;
      ByteVector header;
   };
   auto behindMacs = [&]( const char* text ) {
      return PacketBuilder().raw( macs ).hex( text );
   };
   for ( const Row& row :
         { Row{ "ethernet", LinkType::ethernet, behindMacs( "0800" ) },
           { "tagged", LinkType::ethernet, behindMacs( "8100 0005 0800" ) },
           { "twice", LinkType::ethernet,
             behindMacs( "88a8 0005 8100 0006 0800" ) },
           { "cooked", LinkType::linuxCooked, behindMacs( "0000 0800" ) },
           { "cooked 2", LinkType::linuxCooked2,
             PacketBuilder().hex( "0800" ).zeros( 18 ) },
           { "raw", LinkType::rawIp, {} } } ) {
      SCOPED_TRACE( row.name );
      Decoded decoded(
         PacketBuilder().raw( row.header ).raw( ipv4() ).raw( trailer ), row.link );
      expectPayload( decoded );
      EXPECT_EQ( decoded.packet.source, Vantu::IpGenAddr( "192.0.2.1" ) );
   }
   EXPECT_EQ( reasonOf( ipv4(), LinkType::unknown ), unknownLink );
   ByteVector arp = behindMacs( "0806" ).zeros( 28 );
   EXPECT_EQ( reasonOf( arp, LinkType::ethernet ), notIp );
   ByteVector mixed = behindMacs( "86dd" ).raw( ipv4() ).zeros( 20 );
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
   constexpr unsigned kFragment = 44;
   Decoded plain( ipv6() );
   expectPayload( plain );
   EXPECT_EQ( plain.packet.destination, Vantu::IpGenAddr( "ff02::d" ) );
   // Hop-by-hop, destination, routing, and a fragment that is the whole packet.
   expectPayload( Decoded( ipv6( kHopByHop, PacketBuilder()
                                               .hex( "3c 00 000000000000" )
                                               .hex( "2b 02" )
                                               .zeros( 22 )
                                               .hex( "2c 00 000000000000" )
                                               .hex( "67 00 0000 00000009" ) ) ) );
   struct Row {
      const char* what;
      unsigned next;
      ByteVector extensions;
      DropReason reason;
   };
   auto hex = []( const char* text ) { return PacketBuilder().hex( text ); };
   for ( const Row& row :
         { Row{ "more fragments", kFragment, hex( "67 00 0001 00000009" ),
                fragment },
           { "a later fragment", kFragment, hex( "67 00 0008 00000009" ),
             fragment },
           { "reserved bits", kFragment, hex( "67 00 0006 00000009" ), notDropped },
           { "too long", kHopByHop, hex( "67 ff 000000000000" ), badIpHeader },
           { "cut off in its first bytes", kHopByHop, {}, badIpHeader },
           { "an endless chain", kHopByHop, ByteVector( 800 ), badIpHeader } } ) {
      EXPECT_EQ( reasonOf( ipv6( row.next, row.extensions ) ), row.reason )
         << row.what;
   }
}

}
}
