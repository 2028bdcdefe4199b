#include "apps/agent/capture/CaptureReader.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/PacketBuilder.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

// Section header, one interface, one packet of four bytes.
ByteVector pcapngFile() {
   return PacketBuilder()
      .hex( "0a0d0d0a 0000001c 1a2b3c4d 0001 0000 ffffffff ffffffff 0000001c" )
      .hex( "00000001 00000014 0071 0000 0000ffff 00000014" )
      .hex( "00000006 00000024 00000000 00000000" )
      .u32( 2500000 )
      .hex( "00000004 00000004 cafe0001 00000024" );
}

class CaptureFiles : public testing::Test {
 protected:
   std::string write( const char* name, const ByteVector& bytes ) const {
      return writeFile( folder.path() + '/' + name, bytes );
   }
   static std::string errorOf( const std::string& path ) {
      try {
         CaptureReader reader( path );
         CapturedPacket packet;
         while ( reader.next( packet ) ) continue;
      } catch ( const CaptureError& e ) {
         return e.what();
      }
      return "no error";
   }

   Mox::Test::TempRoot folder;
};

TEST_F( CaptureFiles, BothFormatsAreRead ) {
   CapturedPacket packet;
   CaptureReader classic( write( "a.pcap", pcapFile( { { 7.25, 0xaa, 60 } } ) ) );
   ASSERT_TRUE( classic.next( packet ) );
   EXPECT_EQ( packet.time, 7.25 );
   EXPECT_EQ( packet.link, LinkType::ethernet );
   EXPECT_EQ( packet.wireLength, 60u );
   EXPECT_EQ( ByteVector( packet.bytes.begin(), packet.bytes.end() ),
              ByteVector{ 0xaa } );
   EXPECT_FALSE( classic.next( packet ) );

   CaptureReader modern( write( "a.pcapng", pcapngFile() ) );
   ASSERT_TRUE( modern.next( packet ) );
   EXPECT_EQ( packet.time, 2.5 );
   EXPECT_EQ( packet.link, LinkType::linuxCooked );
   EXPECT_EQ( packet.bytes.size(), 4u );
   EXPECT_FALSE( modern.next( packet ) );

   CaptureReader other( write( "b.pcap", pcapFile( { { 7, 0 } }, 105 ) ) );
   ASSERT_TRUE( other.next( packet ) );
   EXPECT_EQ( packet.link, LinkType::unknown );
}

TEST_F( CaptureFiles, BadFilesAreErrorsWithTheirPath ) {
   std::string missing = folder.path() + "/missing.pcap";
   EXPECT_EQ( errorOf( missing ), missing + ": No such file or directory" );
   std::string text = write( "text", { 'n', 'o', ' ', 'c', 'a', 'p' } );
   EXPECT_EQ( errorOf( text ).rfind( text + ": ", 0 ), 0u ) << errorOf( text );
   EXPECT_NE( errorOf( write( "empty", {} ) ), "no error" );
   EXPECT_NE( errorOf( folder.path() ), "no error" );
}

TEST_F( CaptureFiles, ABrokenOffFileGivesItsWholePacketsFirst ) {
   ByteVector bytes = pcapFile( { { 1, 0xaa }, { 2, 0xbb } } );
   bytes.pop_back();
   std::string path = write( "broken.pcap", bytes );
   CaptureReader reader( path );
   CapturedPacket packet;
   ASSERT_TRUE( reader.next( packet ) );
   EXPECT_EQ( packet.bytes[0], 0xaa );
   EXPECT_THROW( reader.next( packet ), CaptureError );
   EXPECT_EQ( errorOf( path ).rfind( path + ": truncated", 0 ), 0u )
      << errorOf( path );
}

TEST_F( CaptureFiles, SeveralFilesComeInTheOrderOfTime ) {
   CaptureSequence sequence;
   sequence.add(
      write( "a", pcapFile( { { 10, 0xa1 }, { 12, 0xa2 }, { 11, 0xa3 } } ) ) );
   sequence.add( write( "none", pcapFile( {} ) ) );
   sequence.add( write( "c", pcapFile( { { 9.5, 0xc1 }, { 10, 0xc2 } } ) ) );
   struct Row {
      uint8_t content;
      size_t file;
      double elapsed;
   };
   CaptureSequence::Packet packet;
   for ( const Row& row : { Row{ 0xc1, 2, 0.0 },
                            { 0xa1, 0, 0.5 },
                            { 0xc2, 2, 0.5 },
                            { 0xa2, 0, 2.5 },
                            { 0xa3, 0, 2.5 } } ) {  // time does not go back
      ASSERT_TRUE( sequence.next( packet ) );
      EXPECT_EQ( packet.bytes[0], row.content );
      EXPECT_EQ( packet.file, row.file );
      EXPECT_EQ( packet.elapsed, row.elapsed );
   }
   EXPECT_FALSE( sequence.next( packet ) );
   EXPECT_FALSE( sequence.next( packet ) );
   EXPECT_FALSE( CaptureSequence().next( packet ) );
}

}
}
