// Readers as separate processes, in every order of starts and deaths.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/apps/process/Site.h"

namespace Agent {
namespace {

// The last whole line.
std::string lastLine( const Program& program ) {
   auto lines =
      linesOf( program.out().substr( 0, program.out().rfind( '\n' ) + 1 ) );
   return lines.empty() ? "" : lines.back();
}

testing::AssertionResult shows( Program& reader, const std::string& start ) {
   if ( reader.until(
           [&] { return lastLine( reader ).rfind( start, 0 ) == 0; } ) ) {
      return testing::AssertionSuccess();
   }
   return testing::AssertionFailure() << "shows " << lastLine( reader );
}

testing::AssertionResult showsRoutes( Program& reader, int count ) {
   return shows( reader, "routes " + std::to_string( count ) + ":" );
}

class Readers : public testing::Test {
 protected:
   Site site;
};

TEST_F( Readers, EndWithTheSameRoutesWheneverTheyStart ) {
   Program early( site.reader() );
   Program killed( site.reader() );
   ASSERT_TRUE( showsRoutes( early, 0 ) ) << "before any agent";
   {
      Program agent( site.agent( { "--read", "eth1=" + demo( "eth1.pcap" ) } ) );
      ASSERT_TRUE( agent.untilErr( "replayed 12 of 12" ) ) << agent.err();
      ASSERT_TRUE( showsRoutes( killed, 2 ) );
      killed.signal( SIGKILL );
      EXPECT_EQ( killed.wait(), -SIGKILL );
      agent.signal( SIGTERM );
      EXPECT_EQ( agent.wait(), 0 ) << agent.err();
   }
   Program between( site.reader() );
   ASSERT_TRUE( showsRoutes( between, 2 ) ) << "tables without an agent";
   Program agent( site.agent( { "--read", "eth2=" + demo( "eth2.pcap" ) } ) );
   ASSERT_TRUE( agent.untilErr( "replayed 3 of 3" ) ) << agent.err();
   Program restarted( site.reader() );
   Program late( site.reader() );
   ASSERT_TRUE( showsRoutes( late, 4 ) );
   std::string all = lastLine( late );
   EXPECT_NE( all.find( "eth2" ), std::string::npos );
   for ( Program* reader : { &early, &between, &restarted } ) {
      EXPECT_TRUE( shows( *reader, all ) );
   }
}

TEST_F( Readers, OutliveAnAgentThatIsKilled ) {
   Program reader( site.reader() );
   {
      Program agent( site.fedAgent() );
      ASSERT_TRUE( agent.untilErr( "replayed" ) ) << agent.err();
      ASSERT_TRUE( showsRoutes( reader, 4 ) );
      agent.signal( SIGKILL );
      EXPECT_EQ( agent.wait(), -SIGKILL );
   }
   Program agent( site.agent() );
   ASSERT_TRUE( agent.untilErr( "replayed 0 of 0" ) ) << agent.err();
   Program late( site.reader() );
   ASSERT_TRUE( showsRoutes( late, 4 ) );
   EXPECT_TRUE( shows( reader, lastLine( late ) ) );
}

// The bytes of a capture in which packet 0 comes at 0 s, packet 5, a join of (*,G)
// for 60 s, at 1 s, and packet 0 again at 60.5 s.
std::string nearlyExpired() {
   std::string bytes = bytesOf( demo( "eth1.pcap" ) );
   constexpr size_t kFileHeader = 24;
   constexpr size_t kRecordHeader = 16;
   std::vector<std::string> records;
   for ( size_t at = kFileHeader; at < bytes.size(); ) {
      uint32_t length = 0;
      memcpy( &length, &bytes[at + 8], sizeof length );
      records.push_back( bytes.substr( at, kRecordHeader + length ) );
      at += records.back().size();
   }
   auto at = [&]( size_t record, uint32_t seconds, uint32_t micros ) {
      std::string out = records.at( record );
      memcpy( &out[0], &seconds, sizeof seconds );
      memcpy( &out[4], &micros, sizeof micros );
      return out;
   };
   return bytes.substr( 0, kFileHeader ) + at( 0, 1000, 0 ) + at( 1, 1000, 0 ) +
          at( 5, 1001, 0 ) + at( 0, 1060, 500000 );
}

TEST_F( Readers, SeeTheAgentRunOnFromTheReplaysEnd ) {
   Program reader( site.reader() );
   std::string capture = site.write( "short.pcap", nearlyExpired() );
   Program agent( site.agent( { "--read", "eth1=" + capture } ) );
   ASSERT_TRUE( agent.untilErr( "replayed 4 of 4" ) ) << agent.err();
   ASSERT_TRUE( showsRoutes( reader, 1 ) );
   EXPECT_TRUE( showsRoutes( reader, 0 ) ) << "the join's last half second";
}

}
}
