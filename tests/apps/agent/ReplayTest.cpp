#include "apps/agent/Replay.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "apps/agent/engine/Timer.h"
#include "platform/loop/TestClock.h"
#include "tests/apps/agent/PacketBuilder.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

class Replaying : public testing::Test {
 protected:
   // The last `cut` bytes are missing.
   std::string capture( const char* name, const std::vector<CapturedByte>& packets,
                        size_t cut = 0 ) const {
      ByteVector bytes = pcapFile( packets );
      bytes.resize( bytes.size() - cut );
      return writeFile( folder.path() + '/' + name, bytes );
   }

   // Plays on for `count` packets; "time input/content", and "cut" where the
   // capture holds only a part.
   void play( Replay& replay, size_t count ) {
      replay.play(
         clock, [&] { return --count == 0; },
         [this]( const Replay::Frame& frame ) {
            heard.push_back( fmt::format( "{} {}/{}{}", clock.now(), frame.input,
                                          frame.bytes.front(),
                                          frame.truncated ? " cut" : "" ) );
         } );
   }

   Mox::Test::TempRoot folder;
   Mox::TestClock real{ 5000.0 };
   AgentClock clock{ real };
   std::vector<std::string> heard;
};

using Heard = std::vector<std::string>;

TEST_F( Replaying, KeepsDistancesOfAllLinksAndEndsNow ) {
   Replay replay(
      { { capture( "a", { { 100, 1 }, { 107.5, 2 }, { 130, 3 } } ), "l" },
        { capture( "b", { { 105, 4 }, { 130, 5 }, { 300, 6 } } ), "r" } } );
   EXPECT_EQ( replay.size(), 6U );
   replay.start( clock, real.now() );
   EXPECT_EQ( clock.now(), 4800 );
   play( replay, 10 );
   EXPECT_EQ( heard, ( Heard{ "4800 0/1", "4805 1/4", "4807.5 0/2", "4830 0/3",
                              "4830 1/5", "5000 1/6" } ) );
   EXPECT_TRUE( replay.atEnd() );
   real.advance( 1 );
   EXPECT_EQ( clock.now(), 5001 ) << "live from here on";
}

TEST_F( Replaying, GoesOnWhereASliceEnded ) {
   Replay replay(
      { { capture( "a", { { 100, 1 }, { 110, 2 }, { 120, 3 } } ), "" } } );
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
   EXPECT_EQ( heard.size(), 3U );
}

TEST_F( Replaying, OfNothingIsLiveAtOnce ) {
   Replay replay( { { capture( "a", {} ), "" } } );
   replay.start( clock, real.now() );
   play( replay, 10 );
   EXPECT_TRUE( replay.atEnd() );
   real.advance( 7 );
   EXPECT_EQ( clock.now(), 5007 );
}

TEST_F( Replaying, PlaysWhatABrokenOffCaptureHolds ) {
   std::string path = capture( "a", { { 100, 1 }, { 110, 2, 60 }, { 120, 3 } }, 1 );
   Replay replay( { { path, "" } } );
   EXPECT_EQ( replay.problem().rfind( path + ": ", 0 ), 0U ) << replay.problem();
   replay.start( clock, real.now() );
   play( replay, 10 );
   EXPECT_EQ( heard, ( Heard{ "4990 0/1", "5000 0/2 cut" } ) );
}

TEST_F( Replaying, RefusesWhatIsNoCapture ) {
   std::string path = writeFile( folder.path() + "/text", { 't', 'e', 'x', 't' } );
   EXPECT_THROW( Replay( { { path, "" } } ), CaptureError );
   EXPECT_THROW( Replay( { { folder.path() + "/absent", "" } } ), CaptureError );
}

}
}
