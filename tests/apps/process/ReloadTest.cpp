// SIGHUP: the configuration is read again while the agent runs.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "tests/apps/process/Site.h"

namespace Agent {
namespace {

std::string vrf( const std::string& name, const std::string& address,
                 int routes = 10 ) {
   return "- name: " + name + "\n  maxRoutes: " + std::to_string( routes ) +
          "\n  maxRouteIntfs: 10\n" + "  interfaces:\n  - {name: " + name +
          "0, addresses: [" + address + "]}\n";
}

class Reload : public testing::Test {
 protected:
   Program::Arguments command() const {
      return { PIMSM_AGENT, "--config", path, "--root", site.root() };
   }
   void write( const std::string& text ) const { site.write( "agent.yaml", text ); }
   int statusOf( const std::string& name ) const {
      return site.show( { "--vrf", name } ).status;
   }

   Site site;
   std::string path = site.root() + "/agent.yaml";
};

TEST_F( Reload, VrfsComeAndGoWithTheirTables ) {
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) +
          vrf( "blue", "192.0.3.1/24" ) );
   Program agent( command() );
   ASSERT_TRUE( agent.untilErr( "replayed" ) ) << agent.err();
   EXPECT_EQ( statusOf( "red" ), 0 );
   EXPECT_EQ( statusOf( "green" ), 3 );
   write( "vrfs:\n" + vrf( "blue", "192.0.3.1/24" ) +
          vrf( "green", "\"fe80::1/64\"" ) );
   agent.signal( SIGHUP );
   ASSERT_TRUE( agent.untilErr( "took up" ) ) << agent.err();
   EXPECT_EQ( statusOf( "red" ), 3 );
   EXPECT_EQ( statusOf( "blue" ), 0 );
   EXPECT_EQ( statusOf( "green" ), 0 );
   agent.signal( SIGTERM );
   EXPECT_EQ( agent.wait(), 0 );
   EXPECT_EQ( statusOf( "blue" ), 5 );

   // VRFs removed from the configuration while no agent ran are removed at the next
   // start, but not by an agent without a configuration.
   const Mox::Test::Ended played = Mox::Test::runToEnd(
      { PIMSM_AGENT, "--root", site.root(), "--router", "10.0.0.13", "--read",
        demo( "join.pcap" ), "--exit-at-end" } );
   EXPECT_EQ( played.status, 0 ) << played.err;
   EXPECT_EQ( statusOf( "green" ), 5 );
   write( "vrfs:\n" + vrf( "blue", "192.0.3.1/24" ) );
   Program next( command() );
   ASSERT_TRUE( next.untilErr( "vrf green ipv6: no longer configured" ) )
      << next.err();
   ASSERT_TRUE( next.untilErr( "replayed" ) ) << next.err();
   EXPECT_EQ( statusOf( "blue" ), 0 );
   EXPECT_EQ( statusOf( "green" ), 3 );
   EXPECT_FALSE( std::filesystem::exists(
      site.root() + "/routing6/pim/sparsemode/status/green" ) );
}

// A signal that comes during the start, here while the agent waits for its
// configuration.
TEST_F( Reload, SignalsWaitForTheAgent ) {
   for ( int signal : { SIGHUP, SIGTERM } ) {
      std::filesystem::remove( path );
      ASSERT_EQ( mkfifo( path.c_str(), 0600 ), 0 );
      Program agent( command() );
      std::ofstream first( path );  // opened when the agent reads it
      first << "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) << std::flush;
      std::filesystem::remove( path );
      write( "vrfs:\n" + vrf( "green", "192.0.3.1/24" ) );
      agent.signal( signal );
      first.close();
      if ( signal == SIGHUP ) {
         ASSERT_TRUE( agent.untilErr( "took up" ) ) << agent.err();
         EXPECT_EQ( statusOf( "green" ), 0 );
         agent.signal( SIGTERM );
      }
      EXPECT_EQ( agent.wait(), 0 ) << agent.err();
   }
}

TEST_F( Reload, NobodyNeedReadWhatTheAgentSays ) {
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) );
   Program agent( command() );
   ASSERT_TRUE( agent.untilErr( "replayed" ) ) << agent.err();
   agent.closeErr();
   write( "vrfs:\n" + vrf( "green", "192.0.3.1/24" ) );
   agent.signal( SIGHUP );
   const auto end = std::chrono::steady_clock::now() + Program::deadline;
   while ( statusOf( "green" ) == 3 && std::chrono::steady_clock::now() < end )
      continue;
   agent.signal( SIGTERM );
   EXPECT_EQ( agent.wait(), 0 );
}

// Of two new VRFs, the second finds a file in place of its tables.
TEST_F( Reload, AVrfThatCannotBeMountedBringsNoOther ) {
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) );
   Program agent( command() );
   ASSERT_TRUE( agent.untilErr( "replayed" ) ) << agent.err();
   site.write( "routing/pim/sparsemode/agentstatus/bad", "in the way" );
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) +
          vrf( "green", "192.0.3.1/24" ) + vrf( "bad", "192.0.4.1/24" ) );
   agent.signal( SIGHUP );
   ASSERT_TRUE( agent.untilErr( "the configuration stays as it was" ) )
      << agent.err();
   EXPECT_EQ( statusOf( "red" ), 0 );
   EXPECT_EQ( statusOf( "green" ), 3 );
   // No trace is left of the one with half its tables either.
   for ( const char* name : { "green", "bad" } )
      EXPECT_FALSE( std::filesystem::exists(
         site.root() + "/routing/pim/sparsemode/status/" + name ) )
         << name;
}

TEST_F( Reload, ABadFileChangesNothing ) {
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24" ) );
   Program agent( command() );
   ASSERT_TRUE( agent.untilErr( "replayed" ) ) << agent.err();
   write( "vrfs:\n- name: blue\n  interfaces: 7\n" );
   agent.signal( SIGHUP );
   ASSERT_TRUE( agent.untilErr( "agent.yaml:3: " ) ) << agent.err();
   EXPECT_TRUE( agent.untilErr( "the configuration stays as it was" ) );
   EXPECT_EQ( statusOf( "red" ), 0 );
   EXPECT_EQ( statusOf( "blue" ), 3 );
   write( "vrfs:\n" + vrf( "red", "192.0.2.1/24", 20 ) );
   agent.signal( SIGHUP );
   EXPECT_TRUE( agent.untilErr( "from the next start on" ) ) << agent.err();
}

}
}
