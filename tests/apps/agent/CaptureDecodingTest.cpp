// Real packets, decoded as an independent dissector decoded them.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

#include "apps/agent/capture/CaptureReader.h"
#include "apps/agent/packet/Message.h"
#include "tests/apps/agent/Captures.h"

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

std::string helloText( const PimHello& hello ) {
   std::string out;
   if ( hello.holdtime ) out += fmt::format( " hold={}", *hello.holdtime );
   if ( hello.drPriority ) out += fmt::format( " dr={}", *hello.drPriority );
   if ( hello.generationId ) out += fmt::format( " gen={}", *hello.generationId );
   if ( hello.lanPruneDelay ) {
      out += fmt::format( " prop={} ovr={}", hello.lanPruneDelay->propagationDelay,
                          hello.lanPruneDelay->overrideInterval );
   }
   return out.substr( out.empty() ? 0 : 1 );
}

std::string sourceText( char kind, const JoinPruneGroup& group,
                        const EncodedSource& source ) {
   std::string flags = std::string( source.sparse ? "S" : "" ) +
                       ( source.wildcard ? "W" : "" ) + ( source.rpt ? "R" : "" );
   return fmt::format( " {}({}/{},{}/{}){}", kind, valueToStrep( source.address ),
                       source.maskLength, valueToStrep( group.address ),
                       group.maskLength, flags.empty() ? "-" : flags );
}

std::string joinPruneText( const PimJoinPrune& message ) {
   std::string out = fmt::format(
      "up={} hold={}", valueToStrep( message.upstreamNeighbor ), message.holdtime );
   for ( const JoinPruneGroup& group : message.groups ) {
      for ( const auto& source : group.joins )
         out += sourceText( 'J', group, source );
      for ( const auto& source : group.prunes ) {
         out += sourceText( 'P', group, source );
      }
   }
   return out;
}

std::string registerText( const PimRegister& message ) {
   return fmt::format(
      "null={} border={} inner={}>{}", message.nullRegister ? "Yes" : "No",
      message.border ? "Yes" : "No", valueToStrep( message.source ),
      valueToStrep( message.group ) );
}

std::string registerStopText( const PimRegisterStop& message ) {
   return fmt::format( "group={}/{} source={}", valueToStrep( message.group ),
                       message.maskLength, valueToStrep( message.source ) );
}

std::string assertText( const PimAssert& message ) {
   return fmt::format( "group={}/{} source={} rpt={} pref={} metric={}",
                       valueToStrep( message.group ), message.maskLength,
                       valueToStrep( message.source ),
                       message.rptBit ? "True" : "False", message.preference,
                       message.metric );
}

// What the dissector misses behind a null register's header is not there to be had.
std::string withoutMalformed( const std::string& detail ) {
   const std::string malformed = "malformed ";
   return detail.rfind( malformed, 0 ) == 0 ? detail.substr( malformed.size() )
                                            : detail;
}

class CaptureDecoding : public testing::Test {
 protected:
   // Of IPv6 registers the dissector finds those bad whose pseudo header has the
   // length 8, which is the right one (RFC 7761, 4.9); PimTest has both forms.
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
      bool isIpv6Register = expected.type == "Register" &&
                            packet.family() == Vantu::AddressFamily::ipv6;
      if ( expected.checksum == "Bad" &&
           !( isIpv6Register && reason == notDropped ) ) {
         EXPECT_EQ( reason, badChecksum );
         return;
      }
      ASSERT_EQ( reason, notDropped ) << dropText( reason );
      EXPECT_EQ( expectedTypeName( message.type ), expected.type );
      if ( auto* hello = std::get_if<PimHello>( &message.body ) ) {
         EXPECT_EQ( helloText( *hello ), expected.detail );
      } else if ( auto* joinPrune = std::get_if<PimJoinPrune>( &message.body ) ) {
         EXPECT_EQ( joinPruneText( *joinPrune ), expected.detail );
      } else if ( auto* sent = std::get_if<PimRegister>( &message.body ) ) {
         EXPECT_EQ( registerText( *sent ), withoutMalformed( expected.detail ) );
      } else if ( auto* stop = std::get_if<PimRegisterStop>( &message.body ) ) {
         EXPECT_EQ( registerStopText( *stop ), expected.detail );
      } else if ( auto* got = std::get_if<PimAssert>( &message.body ) ) {
         EXPECT_EQ( assertText( *got ), expected.detail );
      }
   }

   // No part of a packet is taken for the whole, and none is read beyond its end:
   // each part is copied to its own allocation, whose bounds the sanitizer guards.
   static void cutEverywhere( const CapturedPacket& captured ) {
      for ( size_t length = 0; length < captured.bytes.size(); ++length ) {
         std::vector<uint8_t> part( captured.bytes.begin(),
                                    captured.bytes.begin() + length );
         IpPacket packet;
         DropReason reason = decodeFrame( captured.link, part, packet );
         if ( reason != notDropped ) continue;
         // What is missing is padding behind the packet.
         IpPacket whole;
         ASSERT_EQ( decodeFrame( captured.link, captured.bytes, whole ),
                    notDropped );
         ASSERT_EQ( packet.payload.size(), whole.payload.size() ) << length;
      }
   }
};

using EachPacket = std::function<void( const std::string& capture, int frame,
                                       const CapturedPacket& packet )>;

void forEachPacket( const std::filesystem::path& directory,
                    const EachPacket& act ) {
   for ( const auto& entry : std::filesystem::directory_iterator( directory ) ) {
      if ( entry.path().extension() != ".pcap" ) continue;
      CaptureReader reader( entry.path() );
      CapturedPacket packet;
      for ( int frame = 1; reader.next( packet ); ++frame ) {
         std::string name = entry.path().filename();
         SCOPED_TRACE( fmt::format( "{} frame {}", name, frame ) );
         act( name, frame, packet );
      }
   }
}

TEST_F( CaptureDecoding, AgreesWithAnotherDissectorAndSurvivesEveryCut ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMessages( *directory );
   ASSERT_FALSE( listed.empty() );
   double start = 0.0;
   forEachPacket( *directory, [&]( const std::string& capture, int frame,
                                   const CapturedPacket& captured ) {
      cutEverywhere( captured );
      if ( frame == 1 ) start = captured.time;
      auto expected = listed[capture].extract( frame );
      if ( !expected.empty() ) {
         EXPECT_NEAR( captured.time - start, expected.mapped().seconds, 2e-6 );
         return compare( captured, expected.mapped() );
      }
      IpPacket packet;
      PimMessage message;
      if ( decodeFrame( captured.link, captured.bytes, packet ) == notDropped ) {
         EXPECT_EQ( decodePim( packet, message ), otherProtocol );
      }
   } );
   for ( const auto& [capture, left] : listed ) {
      EXPECT_TRUE( left.empty() ) << "frames listed but not met in " << capture;
   }
}

// A line for each record: "192.0.2.1 IGMPv3 Membership Report 239.1.1.1 TO_EX 192.0.2.7".
std::vector<std::string> membershipLines( const IpPacket& packet,
                                          const MembershipMessage& message ) {
   static const char* const kRecords[] = { "IS_IN", "IS_EX", "TO_IN",
                                           "TO_EX", "ALLOW", "BLOCK" };
   const std::string sender = valueToStrep( packet.source );
   const bool ipv4 = packet.family() == Vantu::AddressFamily::ipv4;
   auto line = [&]( const std::string& name, const Vantu::IpGenAddr& group,
                    const std::string& record,
                    const std::vector<Vantu::IpGenAddr>& sources ) {
      std::string out =
         fmt::format( "{} {} {} {}", sender, name, valueToStrep( group ), record );
      for ( const auto& source : sources ) out += " " + valueToStrep( source );
      return out;
   };
   if ( auto* query = std::get_if<MembershipQuery>( &message ) ) {
      std::string name = fmt::format( "IGMPv{} Membership Query", query->version );
      return { line( name, query->group, "", query->sources ) };
   }
   const auto& report = std::get<MembershipReport>( message );
   std::vector<std::string> lines;
   for ( const MembershipRecord& record : report.records ) {
      bool leaves = record.type == toInclude;
      std::string name =
         leaves ? "Multicast Listener Done" : "Multicast Listener Report";
      if ( ipv4 && report.version == 2 )
         name = leaves ? "IGMPv2 Leave Group" : "IGMPv2 Membership Report";
      if ( report.version == 3 ) name = "IGMPv3 Membership Report";
      lines.push_back( line( name, record.group,
                             report.version == 3 ? kRecords[record.type] : "",
                             record.sources ) );
   }
   return lines;
}

TEST_F( CaptureDecoding, MembershipAgreesWithAnotherDissector ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMemberships( *directory );
   ASSERT_FALSE( listed.empty() );
   forEachPacket( *directory, [&]( const std::string& capture, int frame,
                                   const CapturedPacket& captured ) {
      IpPacket packet;
      MembershipMessage message;
      std::vector<std::string> lines;
      if ( decodeFrame( captured.link, captured.bytes, packet ) == notDropped &&
           isMembership( packet ) &&
           decodeMembership( packet, message ) == notDropped )
         lines = membershipLines( packet, message );
      EXPECT_EQ( lines, listed[capture][frame] );
   } );
}

}
}
