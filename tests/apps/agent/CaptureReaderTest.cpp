#include "apps/agent/capture/CaptureReader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/apps/agent/PacketBuilder.h"

namespace Agent {
namespace {

using ByteVector = std::vector<uint8_t>;

struct Record {
   uint32_t seconds;
   uint32_t microseconds;
   uint8_t content;
};

// The classic format, big-endian.
ByteVector pcapFile( const std::vector<Record>& records, unsigned link = 1 ) {
   PacketBuilder out;
   out.u32( 0xa1b2c3d4 )
      .u16( 2 )
      .u16( 4 )
      .u32( 0 )
      .u32( 0 )
      .u32( 65535 )
      .u32( link );
   for ( const Record& r : records ) {
      out.u32( r.seconds ).u32( r.microseconds ).u32( 1 ).u32( 60 ).u8( r.content );
   }
   return out;
}

// Section header, one interface, one packet of four bytes.
ByteVector pcapngFile() {
   return PacketBuilder()
      .u32( 0x0a0d0d0a )
      .u32( 28 )
      .u32( 0x1a2b3c4d )
      .u16( 1 )
      .u16( 0 )
      .u32( 0xffffffff )
      .u32( 0xffffffff )
      .u32( 28 )
      .u32( 1 )
      .u32( 20 )
      .u16( 113 )
      .u16( 0 )
      .u32( 65535 )
      .u32( 20 )
      .u32( 6 )
      .u32( 36 )
      .u32( 0 )
      .u32( 0 )
      .u32( 2500000 )
      .u32( 4 )
      .u32( 4 )
      .u32( 0xcafe0001 )
      .u32( 36 );
}

class CaptureFiles : public testing::Test {
 protected:
   CaptureFiles() {
      std::string name = std::filesystem::temp_directory_path() / "captureXXXXXX";
      folder = mkdtemp( name.data() );
   }
   ~CaptureFiles() override { std::filesystem::remove_all( folder ); }

   std::string write( const char* name, const ByteVector& bytes ) const {
      std::string path = folder / name;
      std::ofstream( path, std::ios::binary )
         .write( reinterpret_cast<const char*>( bytes.data() ),
                 static_cast<std::streamsize>( bytes.size() ) );
      return path;
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

   std::filesystem::path folder;
};

TEST_F( CaptureFiles, BothFormatsAreRead ) {
   CapturedPacket packet;
   CaptureReader classic( write( "a.pcap", pcapFile( { { 7, 250000, 0xaa } } ) ) );
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

   CaptureReader other( write( "b.pcap", pcapFile( { { 7, 0, 0 } }, 105 ) ) );
   ASSERT_TRUE( other.next( packet ) );
   EXPECT_EQ( packet.link, LinkType::unknown );
}

TEST_F( CaptureFiles, BadFilesAreErrorsWithTheirPath ) {
   std::string missing = folder / "missing.pcap";
   EXPECT_EQ( errorOf( missing ), missing + ": No such file or directory" );
   std::string text = write( "text", { 'n', 'o', ' ', 'c', 'a', 'p' } );
   EXPECT_EQ( errorOf( text ).rfind( text + ": ", 0 ), 0u ) << errorOf( text );
   EXPECT_NE( errorOf( write( "empty", {} ) ), "no error" );
   EXPECT_NE( errorOf( folder ), "no error" );
}

TEST_F( CaptureFiles, ABrokenOffFileGivesItsWholePacketsFirst ) {
   ByteVector bytes = pcapFile( { { 1, 0, 0xaa }, { 2, 0, 0xbb } } );
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
   sequence.add( write(
      "a", pcapFile( { { 10, 0, 0xa1 }, { 12, 0, 0xa2 }, { 11, 0, 0xa3 } } ) ) );
   sequence.add( write( "none", pcapFile( {} ) ) );
   sequence.add(
      write( "c", pcapFile( { { 9, 500000, 0xc1 }, { 10, 0, 0xc2 } } ) ) );
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
