#include "apps/agent/Replay.h"
#include "apps/config/RouterNames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

#include "engine/Timer.h"
#include "packet/Writer.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

using Router::Writer;

// A captured packet of one byte.
struct CapturedByte {
   double time;  // s
   uint8_t content;
   uint32_t wireLength = 1;
};

class Replaying : public testing::Test {
 protected:
   // A capture in the classic format, big-endian; its path.
   std::string write( const char* name, const std::vector<CapturedByte>& packets,
                      unsigned link = 1 ) const {
      Writer out;
      out.u32( 0xa1b2c3d4 ).u16( 2 ).u16( 4 ).u32( 0 ).u32( 0 ).u32( 65535 );
      out.u32( link );
      for ( const CapturedByte& p : packets ) {
         const auto seconds = static_cast<uint32_t>( p.time );
         out.u32( seconds ).u32(
            static_cast<uint32_t>( ( p.time - seconds ) * 1e6 ) );
         out.u32( 1 ).u32( p.wireLength ).u8( p.content );
      }
      const std::string path = folder.path() + '/' + name;
      std::ofstream( path, std::ios::binary )
         .write( reinterpret_cast<const char*>( out.written().data() ),
                 static_cast<std::streamsize>( out.size() ) );
      return path;
   }
   Replay::Input capture( const char* name,
                          const std::vector<CapturedByte>& packets ) const {
      return { write( name, packets ), "" };
   }
   // Plays `count` packets; notes "time input/content".
   void play( Replay& replay, size_t count = 10 ) {
      replay.play(
         clock, [&] { return --count == 0; },
         [this]( const Replay::Frame& frame ) {
            heard.push_back( fmt::format( "{} {}/{}", clock.now(), frame.input,
                                          frame.bytes.front() ) );
         } );
   }

   Mox::Test::TempRoot folder;
   Mox::TestClock real{ 5000.0 };
   AgentClock clock{ real };
   std::vector<std::string> heard;
};

using Heard = std::vector<std::string>;

// Time does not go back within a file.
TEST_F( Replaying, KeepsDistancesOfAllLinksAndEndsNow ) {
   Replay replay(
      { capture( "a", { { 100, 1 }, { 107.5, 2 }, { 130, 3 } } ),
        capture( "none", {} ),
        capture( "b", { { 105, 4 }, { 130, 5 }, { 300, 6 }, { 299, 7 } } ) } );
   EXPECT_EQ( replay.size(), 7U );
   replay.start( clock, real.now() );
   EXPECT_EQ( clock.now(), 4800 );
   play( replay );
   EXPECT_EQ( heard, ( Heard{ "4800 0/1", "4805 2/4", "4807.5 0/2", "4830 0/3",
                              "4830 2/5", "5000 2/6", "5000 2/7" } ) );
   EXPECT_TRUE( replay.atEnd() );
   real.advance( 1 );
   EXPECT_EQ( clock.now(), 5001 ) << "live from here on";
   Replay nothing( { capture( "a", {} ) } );
   nothing.start( clock, real.now() );
   play( nothing );
   EXPECT_TRUE( nothing.atEnd() );
   real.advance( 7 );
   EXPECT_EQ( clock.now(), 5008 );
}

TEST_F( Replaying, GoesOnWhereASliceEnded ) {
   Replay replay( { capture( "a", { { 100, 1 }, { 110, 2 }, { 120, 3 } } ) } );
   replay.start( clock, real.now() );
   std::vector<double> expired;
   Timer timer( clock, [&] { expired.push_back( clock.now() ); } );
   play( replay, 1 );
   timer.start( 5 );
   real.advance( 100 );
   EXPECT_EQ( clock.now(), 4980 ) << "a replay takes no time";
   play( replay, 1 );
   EXPECT_EQ( expired, std::vector<double>{ 4985 } );
   EXPECT_FALSE( replay.atEnd() );
   EXPECT_EQ( replay.played(), 2U );
   play( replay, 1 );
   EXPECT_TRUE( replay.atEnd() );
   EXPECT_EQ( clock.now(), 5100 );
}

TEST_F( Replaying, TellsTimesAndLinks ) {
   for ( const auto& [number, link] : { std::pair( 1, LinkType::ethernet ),
                                        { 113, LinkType::linuxCooked },
                                        { 276, LinkType::linuxCooked2 },
                                        { 101, LinkType::rawIp },
                                        { 105, LinkType::unknown } } ) {
      CapturedPacket packet;
      CaptureReader reader( write( "file", { { 7.25, 0xaa, 60 } }, number ) );
      ASSERT_TRUE( reader.next( packet ) );
      EXPECT_EQ( packet.link, link ) << number;
      EXPECT_EQ( packet.time, 7.25 );
      EXPECT_EQ( packet.wireLength, 60u );
      EXPECT_FALSE( reader.next( packet ) );
   }
}

}
}
