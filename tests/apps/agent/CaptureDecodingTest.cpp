// Real packets, decoded as an independent dissector decoded them.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "apps/agent/capture/CaptureReader.h"
#include "apps/agent/packet/Pim.h"
#include "tests/apps/agent/Captures.h"

namespace Agent {
namespace {

// One line of decoded-pim.tsv.
struct Expected {
   double seconds = 0.0;
   std::string sender;
   std::string destination;
   std::string type;
   std::string checksum;
   std::string detail;
};

using FileAndFrame = std::pair<std::string, int>;

std::map<FileAndFrame, Expected> readExpected( const std::filesystem::path& path ) {
   std::map<FileAndFrame, Expected> out;
   std::ifstream file( path );
   std::string line;
   std::getline( file, line );  // the columns' names
   while ( std::getline( file, line ) ) {
      std::istringstream fields( line );
      std::string field[8];
      for ( std::string& text : field ) std::getline( fields, text, '\t' );
      out[{ field[0], std::stoi( field[1] ) }] = {
         std::stod( field[2] ), field[3], field[4], field[5], field[6], field[7] };
   }
   return out;
}

std::string expectedTypeName( PimType type ) {
   static const std::map<PimType, std::string> names = {
      { PimType::hello, "Hello" },
      { PimType::registerData, "Register" },
      { PimType::registerStop, "Register-stop" },
      { PimType::joinPrune, "Join/Prune" },
      { PimType::bootstrap, "Bootstrap" },
      { PimType::assertion, "Assert" },
      { PimType::graft, "Graft" },
      { PimType::candidateRp, "Candidate-RP-Advertisement" },
      { PimType::dfElection, "DF election" } };
   auto found = names.find( type );
   return found == names.end() ? "?" : found->second;
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

class CaptureDecoding : public testing::Test {
 protected:
   // Of IPv6 registers the dissector finds those bad whose pseudo header has the
   // length 8, which is the right one (RFC 7761, 4.9); PimTest has both forms.
   void compare( const CapturedPacket& captured, const Expected& expected ) {
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
         EXPECT_EQ( reason, notPim ) << "version 1 is carried by IGMP";
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

TEST_F( CaptureDecoding, AgreesWithAnotherDissector ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto expected = readExpected( *directory / "decoded-pim.tsv" );
   ASSERT_FALSE( expected.empty() );
   size_t compared = 0;
   for ( const auto& entry : std::filesystem::directory_iterator( *directory ) ) {
      if ( entry.path().extension() != ".pcap" ) continue;
      std::string name = entry.path().filename();
      CaptureReader reader( entry.path() );
      CapturedPacket captured;
      double start = 0.0;
      for ( int frame = 1; reader.next( captured ); ++frame ) {
         SCOPED_TRACE( fmt::format( "{} frame {}", name, frame ) );
         if ( frame == 1 ) start = captured.time;
         auto found = expected.find( { name, frame } );
         if ( found == expected.end() ) {
            IpPacket packet;
            PimMessage message;
            if ( decodeFrame( captured.link, captured.bytes, packet ) ==
                 notDropped ) {
               EXPECT_EQ( decodePim( packet, message ), notPim );
            }
            continue;
         }
         ++compared;
         EXPECT_NEAR( captured.time - start, found->second.seconds, 2e-6 );
         compare( captured, found->second );
      }
   }
   EXPECT_EQ( compared, expected.size() );
}

TEST_F( CaptureDecoding, SurvivesEveryCut ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   size_t packets = 0;
   for ( const auto& entry : std::filesystem::directory_iterator( *directory ) ) {
      if ( entry.path().extension() != ".pcap" ) continue;
      CaptureReader reader( entry.path() );
      CapturedPacket captured;
      for ( ; reader.next( captured ); ++packets ) {
         SCOPED_TRACE(
            fmt::format( "{} packet {}", entry.path().string(), packets ) );
         cutEverywhere( captured );
      }
   }
   EXPECT_GT( packets, 0u );
}

}
}
