// Real packets, compared with an independent dissector's listing.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

#include "apps/agent/capture/CaptureReader.h"
#include "packet/Encode.h"
#include "tests/apps/agent/Captures.h"
#include "tests/packet/MessageText.h"

namespace Agent {
namespace {

std::string expectedTypeName( PimType type ) {
   static const char* const names[] = {
      "Hello",      "Register",  "Register-stop",
      "Join/Prune", "Bootstrap", "Assert",
      "Graft",      "Graft-Ack", "Candidate-RP-Advertisement" };
   auto number = static_cast<size_t>( type );
   if ( type == PimType::dfElection ) return "DF election";
   return number < std::size( names ) ? names[number] : "?";
}

// The dissector calls IPv6 registers bad whose pseudo header has the length 8,
// which is right (RFC 7761, 4.9). MessageTest has both forms.
void compare( const CapturedPacket& captured, const ListedMessage& expected ) {
   IpPacket packet;
   PimMessage message;
   DropReason reason = decodeFrame( captured.link, captured.bytes, packet );
   if ( expected.checksum == "-" ) {
      EXPECT_EQ( reason, truncatedCapture );
      return;
   }
   ASSERT_EQ( reason, notDropped ) << dropText( reason );
   EXPECT_EQ( valueToStrep( packet.source ), expected.sender );
   EXPECT_EQ( valueToStrep( packet.destination ), expected.destination );
   reason = decodePim( packet, message );
   if ( expected.type.rfind( "v1 ", 0 ) == 0 ) {
      EXPECT_EQ( reason, otherProtocol ) << "version 1 is carried by IGMP";
      return;
   }
   bool isIpv6Register =
      expected.type == "Register" && packet.family() == Vantu::AddressFamily::ipv6;
   if ( expected.checksum == "Bad" &&
        !( isIpv6Register && reason == notDropped ) ) {
      EXPECT_EQ( reason, badChecksum );
      return;
   }
   ASSERT_EQ( reason, notDropped ) << dropText( reason );
   EXPECT_EQ( expectedTypeName( message.type ), expected.type );
   if ( message.body.index() == 0 ) return;
   // The dissector's listing lacks a null register's inner header.
   std::string detail = expected.detail;
   if ( detail.rfind( "malformed ", 0 ) == 0 ) detail.erase( 0, 10 );
   EXPECT_EQ( textOf( message ), detail );
   // The encoded message decodes to the same.
   if ( auto* sent = std::get_if<PimRegister>( &message.body ) )
      sent->packet = packet.payload.subspan( 8 );
   const auto written = encodePim( message, packet.source, packet.destination );
   if ( expected.type != "Hello" ) {
      EXPECT_EQ( written.size(), packet.payload.size() );
   }
   packet.payload = written;
   ASSERT_EQ( decodePim( packet, message ), notDropped );
   EXPECT_EQ( textOf( message ), detail );
}

// A part of a packet must not pass for the whole, and no decoder may read beyond
// its end: each part is copied to its own allocation, whose bounds the sanitizer
// guards.
void cutEverywhere( const CapturedPacket& captured ) {
   IpPacket whole;
   for ( size_t length = 0; length < captured.bytes.size(); ++length ) {
      std::vector<uint8_t> part( captured.bytes.begin(),
                                 captured.bytes.begin() + length );
      IpPacket packet;
      if ( decodeFrame( captured.link, part, packet ) != notDropped ) continue;
      // Only padding behind the packet was cut off.
      ASSERT_EQ( decodeFrame( captured.link, captured.bytes, whole ), notDropped );
      ASSERT_EQ( packet.payload.size(), whole.payload.size() ) << length;
   }
}

TEST( CaptureDecoding, AgreesWithAnotherDissectorAndSurvivesEveryCut ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMessages( *directory );
   auto memberships = listedMemberships( *directory );
   ASSERT_FALSE( listed.empty() || memberships.empty() );
   for ( const auto& entry : std::filesystem::directory_iterator( *directory ) ) {
      if ( entry.path().extension() != ".pcap" ) continue;
      const std::string name = entry.path().filename();
      CaptureReader reader( entry.path() );
      CapturedPacket captured;
      double start = 0.0;
      for ( int frame = 1; reader.next( captured ); ++frame ) {
         SCOPED_TRACE( fmt::format( "{} frame {}", name, frame ) );
         cutEverywhere( captured );
         if ( frame == 1 ) start = captured.time;
         IpPacket packet;
         PimMessage message;
         bool decoded =
            decodeFrame( captured.link, captured.bytes, packet ) == notDropped;
         auto expected = listed[name].extract( frame );
         if ( !expected.empty() ) {
            EXPECT_NEAR( captured.time - start, expected.mapped().seconds, 2e-6 );
            compare( captured, expected.mapped() );
         } else if ( decoded ) {
            EXPECT_EQ( decodePim( packet, message ), otherProtocol );
         }
         MembershipMessage membership;
         std::vector<std::string> lines;
         if ( decoded && isMembership( packet ) &&
              decodeMembership( packet, membership ) == notDropped )
            lines = linesOf( packet, membership );
         EXPECT_EQ( lines, memberships[name][frame] );
      }
   }
   for ( const auto& [capture, left] : listed ) {
      EXPECT_TRUE( left.empty() ) << "frames listed but not met in " << capture;
   }
}

}
}
