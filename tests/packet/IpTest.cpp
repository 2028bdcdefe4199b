#include "packet/Ip.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/packet/Hex.h"

namespace Router {
namespace {

const std::string kMacs( 24, '0' );

// With these header fields for version and length, total length and fragment.
std::string ipv4( const char* version = "45", const char* total = "0018",
                  const char* fragment = "4000", const char* options = "" ) {
   return fmt::format(
      " {} 00 {} 0007 {} 01 67 0000 =192.0.2.1 =224.0.0.13 {} 01020304", version,
      total, fragment, options );
}
// With this many bytes of extension headers, the first with the number `next`.
std::string ipv6( const char* next = "67", size_t size = 0,
                  const std::string& extensions = "" ) {
   return fmt::format( " 60000000 {:04x} {} 01 =fe80::1 =ff02::d {} 01020304",
                       size + 4, next, extensions );
}

const char* const kIpv4 = "192.0.2.1>224.0.0.13 103 ttl 1: 1 2 3 4";
const char* const kIpv6 = "fe80::1>ff02::d 103 ttl 1: 1 2 3 4";
const char* const kAlerted = "fe80::1>ff02::d 103 ttl 1: 1 2 3 4 alert";

TEST( IpDecoder, LeadsToThePayloadOrTellsWhyNot ) {
   struct Row {
      LinkType link;
      std::string frame;
      const char* text;
   };
   constexpr LinkType ethernet = LinkType::ethernet, raw = LinkType::rawIp;
   for (
      const Row& row :
      { // Padding to the least frame is behind the packet.
        Row{ ethernet, kMacs + "0800" + ipv4() + "eeee", kIpv4 },
        { ethernet, kMacs + "8100 0005 0800" + ipv4(), kIpv4 },
        { ethernet, kMacs + "88a8 0005 8100 0006 0800" + ipv4(), kIpv4 },
        { LinkType::linuxCooked, kMacs + "0000 0800" + ipv4(), kIpv4 },
        { LinkType::linuxCooked2, "0800" + std::string( 36, '0' ) + ipv4(), kIpv4 },
        { LinkType::unknown, ipv4(), "unknownLink" },
        { ethernet, kMacs + "0806" + std::string( 56, '0' ), "notIp" },
        { ethernet, kMacs + "86dd" + ipv4() + std::string( 40, '0' ),
          "badIpHeader" },
        // Headers that contradict themselves
        { raw, ipv4( "47", "0020", "4000", "0000000000000000" ), kIpv4 },
        { raw, ipv4( "55" ), "badIpHeader" },
        { raw, ipv4( "44" ), "badIpHeader" },
        { raw, ipv4( "47", "001b", "4000", "0000000000000000" ), "badIpHeader" },
        { raw, ipv4( "45", "0019" ), "truncatedCapture" },
        { raw, ipv4( "45", "0018", "2000" ), "fragment" },
        { raw, ipv4( "45", "0018", "0001" ), "fragment" },
        // Hop-by-hop, destination, routing, and a fragment that is the whole packet
        { raw, ipv6(), kIpv6 },
        { raw,
          ipv6( "00", 48,
                "3c 00 000000000000 2b 02" + std::string( 44, '0' ) +
                   " 2c 00 000000000000 67 00 0000 00000009" ),
          kIpv6 },
        { raw, ipv6( "2c", 8, "67 00 0006 00000009" ), kIpv6 },
        // The router alert: behind padding, of RSVP, cut off
        { raw, ipv6( "00", 8, "67 00 00 00 0502 0000" ), kAlerted },
        { raw, ipv6( "00", 8, "67 00 0502 0001 0100" ), kIpv6 },
        { raw, ipv6( "00", 8, "67 00 0102 0000 00 05" ), kIpv6 },
        { raw, ipv6( "2c", 8, "67 00 0001 00000009" ), "fragment" },
        { raw, ipv6( "2c", 8, "67 00 0008 00000009" ), "fragment" },
        { raw, ipv6( "00", 8, "67 ff 000000000000" ), "badIpHeader" },
        { raw, ipv6( "00" ), "badIpHeader" },
        { raw, ipv6( "00", 800, std::string( 1600, '0' ) ), "badIpHeader" } } ) {
      const ByteVector frame = hex( row.frame );
      IpPacket packet;
      DropReason reason = decodeFrame( row.link, frame, packet );
      std::string text( dropName( reason ) );
      if ( reason == notDropped )
         text = fmt::format( "{}>{} {} ttl {}: {}", valueToStrep( packet.source ),
                             valueToStrep( packet.destination ), packet.protocol,
                             packet.ttl, fmt::join( packet.payload, " " ) ) +
                ( packet.routerAlert ? " alert" : "" );
      EXPECT_EQ( text, row.text ) << row.frame;
   }
}

TEST( IpDecoder, VlansAreInterfacesOfTheirOwn ) {
   auto isOf = []( const std::string& behindMacs,
                   LinkType link = LinkType::ethernet ) {
      const ByteVector frame = hex( kMacs + behindMacs );
      return isOfVlan( link, frame );
   };
   EXPECT_TRUE( isOf( "8100 0005 0800" ) );
   EXPECT_TRUE( isOf( "88a8 e000 8100 0006 0800" ) );
   EXPECT_FALSE( isOf( "8100 e000 0800" ) ) << "only a priority";
   EXPECT_FALSE( isOf( "0800 4500" ) );
   EXPECT_FALSE( isOf( "8100" ) );
   EXPECT_FALSE( isOf( "8100 0005", LinkType::rawIp ) );
}

}
}
