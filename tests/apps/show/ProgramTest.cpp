// pimsm-show as a program: options, forms of output, exit statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/apps/show/Published.h"
#include "tests/support/Program.h"

namespace Show {
namespace {

using Mox::Test::Ended;
using Mox::Test::Program;

// The options' words, apart by spaces.
Ended show( const std::string& root, const std::string& options = "" ) {
   Program::Arguments command = { PIMSM_SHOW, "--root", root };
   std::istringstream words( options );
   for ( std::string word; words >> word; ) command.push_back( word );
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

class ShowShownRouter : public ShowProgram {
 protected:
   Ended shown( const std::string& options = "" ) const {
      return show( router.root.path(), options );
   }
   nlohmann::json json( const std::string& options ) const {
      return nlohmann::json::parse( shown( options ).out );
   }

   ShownRouter router;
};

struct AskedRow {
   const char* options;
   int status;
   size_t lines;
   const char* says;
};

TEST_F( ShowShownRouter, AnswersAndSaysByItsStatusWhetherItFound ) {
   const AskedRow rows[] = {
      { "", 0, 24, "vrf default ipv4: 5 routes, agent running" },
      { "routes", 0, 24, "vrf default ipv4: 5 routes, agent running" },
      { "--vrf red", 0, 1, "red" },  // asked for nothing that is not there
      { "status", 0, 0, "forwarding process unknown" },
      { "check", 1, 0, "unresolved-rpf   (203.0.113.9, 239.0.0.1)" },
      { "check --vrf red", 0, 1, "0 found" },
      { "check --group 239.9.9.9 -4 --json", 0, 0, "\"findings\": []" },
      { "interfaces --iface eth5 -4 --vrf default", 0, 4, "eth5" },
      { "interfaces --iface eth77", 1, 5, "0 interfaces" },
      { "-4 --vrf default --group 239.1.2.0/24 --kind sg --iif eth1 --iface eth3",
        0, 4, "vrf default ipv4: 1 of 5 routes, agent running" },
      { "-4 --vrf default --kind wc --count", 0, 1,
        "vrf default ipv4: 2 of 5 routes, agent running\n" },
      { "-4 --vrf default --group 239.1.2.3 --not-forwarding", 0, 6,
        "assert lost" },
      { "--json-lines", 0, 7, "" },
      { "explain 198.51.100.7 239.1.2.3 eth3", 0, 13, "eth3 does NOT forward" },
      { "explain 198.51.100.7 239.1.2.3", 0, 0, "As of the agent's last write, " },
      { "explain * 239.1.2.3 --macro rptJoinDesiredWc", 0, 0, "is yes" },
      { "explain * 239.1.2.3 --macro joinDesiredSgFastFailover --failover "
        "eth2,eth3",
        0, 0, "is yes" },
      { "explain * 239.1.2.3 eth2 --json", 0, 0, "immediate_olist(*,G)" },
      { "registers", 0, 11, "vrf default ipv4: 5 (S,G), agent running" },
      { "registers --source 198.51.100.0/24 -4 --vrf default", 0, 4, "3 of 5" },
      { "advertised --json -6", 0, 0, "\"rp-address\": \"2001:db8::1\"" },
      { "registers --group 239.9.9.9", 1, 5, "0 of 5" },
      { "advertised --vrf red", 0, 1, "0 (S,G)" },
      { "advertised --vrf red --group 239.0.0.0/8", 1, 1, "0 (S,G)" },
      { "histogram -4 --vrf default", 0, 0, "this reader from 5 mirrored routes" },
      { "histogram --vrf red", 0, 2, "from 0 mirrored routes" },
      { "histogram -6 --json", 0, 0, "\"address\": \"::\"" },
      { "--group 239.9.9.9", 1, 5, "0 of 5 routes" },
      { "--iface eth9 --json", 1, 20, "" } };
   for ( const AskedRow& row : rows ) {
      SCOPED_TRACE( row.options );
      Ended ended = shown( row.options );
      EXPECT_EQ( ended.status, row.status );
      EXPECT_EQ( ended.err, "" );
      if ( row.lines != 0 ) {
         EXPECT_EQ( countLines( ended.out ), row.lines ) << ended.out;
      }
      EXPECT_NE( ended.out.find( row.says ), std::string::npos ) << ended.out;
   }
}

TEST_F( ShowProgram, RefusesWrongUsage ) {
   const std::pair<const char*, const char*> rows[] = {
      { "--what", "--what" },
      { "explode", "explode" },
      { "-4 -6", "-6" },
      { "-4 status -6", "-6" },
      { "--kind both", "both" },
      { "--group banana", "banana" },
      { "--group 239.0.0.0/33", "32" },
      { "--source", "--source" },
      { "--json --json-lines", "--json" },
      { "status --group 239.0.0.0/8", "--group" },
      { "status --json-lines", "--json-lines" },
      { "check --count", "--count" },
      { "interfaces --detail", "--detail" },
      { "watch --json", "--json" },
      { "metrics --json", "--json" },
      { "routes --output /tmp/x", "--output" },
      { "explain 239.1.2.3", "group" },
      { "explain * 192.0.2.1", "no multicast group" },
      { "explain 2001:db8::1 239.1.2.3", "family" },
      { "explain banana 239.1.2.3", "banana" },
      { "explain * 239.1.2.3 --count", "--count" },
      { "registers --kind sg", "--kind" },
      { "advertised --json-lines", "--json-lines" },
      { "histogram --kind sg", "--kind" },
      { "routes status", "status" } };
   for ( const auto& [options, says] : rows ) {
      SCOPED_TRACE( options );
      expectComplaint( show( empty.path(), options ), 2, says );
   }
}

TEST_F( ShowShownRouter, RefusesToExplainWhatIsNotThere ) {
   expectComplaint( shown( "explain * 239.9.9.9" ), 1, "no such route" );
   expectComplaint( shown( "explain * 239.1.2.3 eth9" ), 1, "no such route" );
   expectComplaint( shown( "explain * 239.1.2.3 --macro joined" ), 2, "joined" );
   expectComplaint( shown( "explain * 239.1.2.3 eth2 --macro isPreferredAssertWc" ),
                    2, "--received" );
   expectComplaint(
      shown(
         "explain * 239.1.2.3 eth2 --macro isPreferredAssertWc --received banana" ),
      2, "no assert metric" );
   expectComplaint(
      shown( "explain * 239.1.2.3 --macro joinDesiredSgFastFailover" ), 2,
      "--failover" );
   expectComplaint( shown( "explain * 239.1.2.3 eth2 --macro couldAssertSg" ), 2,
                    "(S,G)" );
}

TEST_F( ShowShownRouter, SaysThatThereAreNoTables ) {
   expectComplaint( show( empty.path() ), 3, "start pimsm-agent" );
   expectComplaint( show( empty.path() + "/absent" ), 3, "/absent" );
   expectComplaint( shown( "--vrf blue" ), 3, "no tables of vrf blue" );
   expectComplaint( shown( "-6 --vrf red" ), 3, "vrf red" );
}

TEST_F( ShowShownRouter, RefusesALayoutThatIsNotItsOwn ) {
   const std::string root = router.root.path();
   std::string route = root + '/' + router.ipv4.path + "/route";
   ASSERT_TRUE( std::filesystem::exists( route ) );
   {
      // The word behind the magic: the layout's version.
      std::fstream file( route, std::ios::in | std::ios::out | std::ios::binary );
      file.seekp( 8 );
      file.put( 99 );
   }
   expectComplaint( shown( "-4 --vrf default" ), 4, "version" );
   EXPECT_EQ( shown( "-6" ).status, 0 );
   EXPECT_EQ( shown( "registers -4" ).status, 0 ) << "needs no routes";
   std::filesystem::resize_file(
      root + '/' + router.ipv4.registers->name() + "/drDiscoveredSg", 100 );
   expectComplaint( shown( "registers -4" ), 3, "drDiscoveredSg" );
   std::filesystem::remove( root + '/' + router.ipv4.advertised->name() + "/coll" );
   expectComplaint( shown( "advertised -4" ), 3, "coll is missing" );
}

TEST_F( ShowShownRouter, MetricsAreReadByAnotherParser ) {
   const std::string python = "/usr/bin/python3", parser = PIMSM_METRICS_PARSER;
   if ( Mox::Test::runToEnd( { python, parser } ).status != 0 )
      GTEST_SKIP() << "python3-prometheus-client is not installed";
   router.publishProcess();
   const std::string file = empty.path() + "/metrics.prom";
   std::ofstream( file ) << "of another time\n";
   Ended ended = shown( "metrics --output " + file );
   EXPECT_EQ( ended.status, 0 ) << ended.err;
   EXPECT_EQ( ended.out, "" );
   Ended parsed = Mox::Test::runToEnd( { python, parser, file } );
   EXPECT_EQ( parsed.status, 0 ) << parsed.err;
   EXPECT_EQ( parsed.out, R"(gauge pimsm_writer_up 3
gauge pimsm_table_used_ratio 21
gauge pimsm_registers 12
gauge pimsm_routes 6
gauge pimsm_outgoing_interfaces 3
gauge pimsm_routes_pending 1
histogram pimsm_source_groups 12
histogram pimsm_group_sources 13
counter pimsm_table_writes 3
counter pimsm_review_passes 1
gauge pimsm_reload_duration_seconds 1
gauge pimsm_reload_routes 1
counter pimsm_agent_packets 2
counter pimsm_agent_packets_dropped 1
gauge pimsm_build_info 1
)" );
   EXPECT_EQ( std::distance( std::filesystem::directory_iterator( empty.path() ),
                             std::filesystem::directory_iterator() ),
              1 )
      << "nothing is left beside the file";
   expectComplaint( shown( "metrics --output " + empty.path() + "/no/file" ), 2,
                    "cannot write" );
}

// Nothing in a file makes it hang or crash, whatever it makes of it.
TEST_F( ShowShownRouter, SurvivesTablesOfAnyLength ) {
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
   EXPECT_EQ( show( empty.path(), "status" ).status, 5 );
   EXPECT_EQ( show( empty.path(), "registers" ).status, 5 );
   EXPECT_EQ( show( empty.path(), "advertised --json" ).status, 5 );
   EXPECT_EQ( show( empty.path(), "--group 239.9.9.9" ).status, 1 )
      << "not found says more than gone";
}

TEST_F( ShowShownRouter, GivesOneJsonDocument ) {
   auto routes = json( "--json" );
   ASSERT_EQ( routes.size(), 3U );
   EXPECT_EQ( routes[0]["vrf"], "default" );
   EXPECT_EQ( routes[0]["family"], "ipv4" );
   EXPECT_EQ( routes[0]["writer"], "running" );
   EXPECT_EQ( routes[0]["data"].size(), 6U ) << "five, one with a second entry";
   EXPECT_EQ( routes[2]["vrf"], "red" );
   EXPECT_TRUE( routes[2]["data"].empty() );
   EXPECT_EQ( json( "status --json" )[0]["data"]["sg-routes"], 3 );
   auto count = json( "-4 --vrf default --kind wc --count --json" );
   EXPECT_EQ( count[0]["data"]["matching"], 2 );
   EXPECT_EQ( count[0]["data"]["routes"], 5 );
   std::istringstream lines( shown( "--json-lines" ).out );
   for ( std::string line; std::getline( lines, line ); ) {
      auto route = nlohmann::json::parse( line );
      EXPECT_TRUE( route["data"].contains( "group" ) ) << line;
   }
}

}
}
