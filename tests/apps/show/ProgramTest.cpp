// pimsm-show as a program: options, forms of output, exit statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/apps/show/Published.h"
#include "tests/support/Program.h"

namespace Show {
namespace {

using Mox::Test::Ended;
using Mox::Test::Program;

Ended show( const std::string& root, const Program::Arguments& more = {} ) {
   Program::Arguments command = { PIMSM_SHOW, "--root", root };
   command.insert( command.end(), more.begin(), more.end() );
   return Mox::Test::runToEnd( command );
}

// One line on standard error that says what to do, nothing else.
void expectComplaint( const Ended& ended, int status, const std::string& says ) {
   EXPECT_EQ( ended.status, status ) << ended.err;
   EXPECT_EQ( ended.out, "" );
   EXPECT_EQ( ended.err.rfind( "pimsm-show: ", 0 ), 0U ) << ended.err;
   EXPECT_EQ( ended.err.find( '\n' ), ended.err.size() - 1 ) << ended.err;
   EXPECT_NE( ended.err.find( says ), std::string::npos ) << ended.err;
}

size_t countLines( const std::string& text ) {
   return static_cast<size_t>( std::count( text.begin(), text.end(), '\n' ) );
}

class ShowProgram : public testing::Test {
 protected:
   Mox::Test::TempRoot empty;
};

TEST_F( ShowProgram, IsDoneWhileTheAgentRuns ) {
   ShownRouter router;
   Ended ended = show( router.root.path() );
   EXPECT_EQ( ended.status, 0 ) << ended.err;
   EXPECT_EQ( ended.err, "" );
   EXPECT_NE( ended.out.find( "vrf default ipv4: 5 routes, agent running" ),
              std::string::npos )
      << ended.out;
   EXPECT_EQ( show( router.root.path(), { "routes" } ).out.size(),
              ended.out.size() );
   EXPECT_EQ( show( router.root.path(), { "--vrf", "red" } ).status, 0 )
      << "nothing was asked for that is not there";
   EXPECT_EQ( show( router.root.path(), { "status" } ).status, 0 );
}

TEST_F( ShowProgram, CombinesFilters ) {
   ShownRouter router;
   Ended ended = show( router.root.path(),
                       { "-4", "--vrf", "default", "--group", "239.1.2.0/24",
                         "--kind", "sg", "--iif", "eth1", "--iface", "eth3" } );
   EXPECT_EQ( ended.status, 0 ) << ended.err;
   EXPECT_NE( ended.out.find( "vrf default ipv4: 1 of 5 routes, agent running" ),
              std::string::npos )
      << ended.out;
   EXPECT_EQ( countLines( ended.out ), 4U ) << ended.out;
}

TEST_F( ShowProgram, SaysWhenNoRouteMatches ) {
   ShownRouter router;
   Ended ended = show( router.root.path(), { "--group", "239.9.9.9" } );
   EXPECT_EQ( ended.status, 1 );
   EXPECT_NE( ended.out.find( "0 of 5 routes" ), std::string::npos );
   EXPECT_EQ( show( router.root.path(), { "--iface", "eth9", "--json" } ).status,
              1 );
}

TEST_F( ShowProgram, RefusesWrongUsage ) {
   const std::pair<Program::Arguments, const char*> rows[] = {
      { { "--what" }, "--what" },
      { { "explode" }, "explode" },
      { { "-4", "-6" }, "-6" },
      { { "--kind", "both" }, "both" },
      { { "--group", "banana" }, "banana" },
      { { "--group", "239.0.0.0/33" }, "32" },
      { { "--source" }, "--source" },
      { { "--json", "--json-lines" }, "--json" },
      { { "status", "--group", "239.0.0.0/8" }, "--group" },
      { { "status", "--json-lines" }, "--json-lines" },
      { { "routes", "status" }, "status" } };
   for ( const auto& [arguments, says] : rows ) {
      SCOPED_TRACE( arguments.back() );
      expectComplaint( show( empty.path(), arguments ), 2, says );
   }
}

TEST_F( ShowProgram, SaysThatThereAreNoTables ) {
   expectComplaint( show( empty.path() ), 3, "start pimsm-agent" );
   expectComplaint( show( empty.path() + "/absent" ), 3, "/absent" );
   ShownRouter router;
   expectComplaint( show( router.root.path(), { "--vrf", "blue" } ), 3,
                    "no tables of vrf blue" );
   expectComplaint( show( router.root.path(), { "-6", "--vrf", "red" } ), 3,
                    "vrf red" );
}

TEST_F( ShowProgram, RefusesALayoutThatIsNotItsOwn ) {
   ShownRouter router;
   std::string route = router.root.path() + '/' + router.ipv4.path + "/route";
   ASSERT_TRUE( std::filesystem::exists( route ) );
   {
      // The word behind the magic: the layout's version.
      std::fstream file( route, std::ios::in | std::ios::out | std::ios::binary );
      file.seekp( 8 );
      file.put( 99 );
   }
   expectComplaint( show( router.root.path(), { "-4", "--vrf", "default" } ), 4,
                    "version" );
   EXPECT_EQ( show( router.root.path(), { "-6" } ).status, 0 );
}

// Nothing in a file makes it hang or crash, whatever it makes of it.
TEST_F( ShowProgram, SurvivesTablesOfAnyLength ) {
   ShownRouter router;
   std::string route = router.root.path() + '/' + router.ipv4.path + "/route";
   std::string copy = empty.path() + '/' + router.ipv4.path;
   for ( const char* table : { "route", "routeIntf" } ) {
      for ( uintmax_t size : { 0, 1, 100, 4735, 4736, 100000 } ) {
         std::filesystem::remove_all( copy );
         std::filesystem::create_directories( copy );
         for ( const char* name : { "route", "routeIntf", "routeCounter" } ) {
            std::filesystem::copy_file(
               std::filesystem::path( route ).parent_path() / name,
               copy + '/' + name );
         }
         std::filesystem::resize_file( copy + '/' + table, size );
         expectComplaint( show( empty.path() ), 3, table );
      }
   }
}

TEST_F( ShowProgram, ShowsWhatAGoneAgentLeft ) {
   Mox::TestClock clock;
   {
      Published published( clock, empty.path() );
      published.vrf().wc( "239.1.2.3" ).rpTree().intf( "eth1" ).joined();
      published.publish();
   }
   Ended ended = show( empty.path() );
   EXPECT_EQ( ended.status, 5 );
   EXPECT_EQ( ended.err, "" );
   EXPECT_NE( ended.out.find( "1 route, agent gone" ), std::string::npos )
      << ended.out;
   EXPECT_NE( ended.out.find( "eth1" ), std::string::npos );
   EXPECT_EQ( show( empty.path(), { "status" } ).status, 5 );
   EXPECT_EQ( show( empty.path(), { "--group", "239.9.9.9" } ).status, 1 )
      << "not found says more than gone";
}

TEST_F( ShowProgram, GivesOneJsonDocument ) {
   ShownRouter router;
   auto routes =
      nlohmann::json::parse( show( router.root.path(), { "--json" } ).out );
   ASSERT_EQ( routes.size(), 3U );
   EXPECT_EQ( routes[0]["vrf"], "default" );
   EXPECT_EQ( routes[0]["family"], "ipv4" );
   EXPECT_EQ( routes[0]["writer"], "running" );
   EXPECT_EQ( routes[0]["data"].size(), 6U ) << "five, one with a second entry";
   EXPECT_EQ( routes[2]["vrf"], "red" );
   EXPECT_TRUE( routes[2]["data"].empty() );
   auto status = nlohmann::json::parse(
      show( router.root.path(), { "status", "--json" } ).out );
   EXPECT_EQ( status[0]["data"]["sg-routes"], 3 );
}

TEST_F( ShowProgram, GivesOneJsonLineARoute ) {
   ShownRouter router;
   Ended ended = show( router.root.path(), { "--json-lines" } );
   EXPECT_EQ( countLines( ended.out ), 7U );
   std::istringstream lines( ended.out );
   for ( std::string line; std::getline( lines, line ); ) {
      auto route = nlohmann::json::parse( line );
      EXPECT_TRUE( route["data"].contains( "group" ) ) << line;
   }
}

TEST_F( ShowProgram, CountsInTheFormAskedFor ) {
   ShownRouter router;
   Program::Arguments count = { "-4",     "--vrf", "default",
                                "--kind", "wc",    "--count" };
   EXPECT_EQ( show( router.root.path(), count ).out,
              "vrf default ipv4: 2 of 5 routes, agent running\n" );
   count.push_back( "--json" );
   auto json = nlohmann::json::parse( show( router.root.path(), count ).out );
   EXPECT_EQ( json[0]["data"]["matching"], 2 );
   EXPECT_EQ( json[0]["data"]["routes"], 5 );
}

}
}
