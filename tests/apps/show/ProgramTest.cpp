// pimsm-show as a program: options, forms of output, exit statuses.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/apps/mirror/Published.h"
#include "tests/support/Damage.h"
#include "tests/support/Program.h"

namespace Show {
namespace {

using Mox::Test::Ended;
using Mox::Test::Program;

// `options` are separated by blanks; '' is an empty one.
Ended show( const std::string& root, const std::string& options = "" ) {
   Program::Arguments command = { PIMSM_SHOW, "--root", root };
   std::istringstream words( options );
   for ( std::string word; words >> word; )
      command.push_back( word == "''" ? "" : word );
   return Mox::Test::runToEnd( command );
}

// Expects one line on standard error with the remedy, and nothing else.
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
   ShowProgram() { unsetenv( "COLUMNS" ); }  // each item on one line

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
      { "--vrf red", 0, 1, "red" },  // nothing missing was asked for
      { "status", 0, 0, "forwarding process unknown" },
      { "check", 1, 0, "unresolved-rpf   (203.0.113.9, 239.0.0.1)" },
      { "check --vrf red", 0, 2, "As of the agent's last write, " },
      { "check --group 239.9.9.9 -4 --json", 0, 0, "\"finding\": []" },
      { "check --json --vrf red", 0, 0, "\"since-last-write\"" },
      { "explain * 239.1.2.3 --json", 0, 0, "\"since-last-write\"" },
      { "registers --help", 0, 0, "--source" },
      { "interfaces --iface eth5 -4 --vrf default", 0, 4, "eth5" },
      { "interfaces --iface eth77", 1, 5, "0 interfaces" },
      { "-4 --vrf default --group 239.1.2.0/24 --kind sg --iif eth1 --iface eth3",
        0, 4, "vrf default ipv4: 1 of 5 routes, agent running" },
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
      { "registers --group 239.9.9.9", 1, 3, "0 of 5" },
      { "advertised --vrf red", 0, 1, "0 (S,G)" },
      { "advertised --vrf red --group 239.0.0.0/8", 1, 1, "0 (S,G)" },
      { "histogram -4 --vrf default", 0, 0, "this reader from 5 mirrored routes" },
      { "histogram --vrf red", 0, 2, "from 0 mirrored routes" },
      { "histogram -6 --json", 0, 0, "\"address\": \"::\"" },
      { "--group 239.9.9.9", 1, 3, "0 of 5 routes" },
      { "--iface eth9 --json", 1, 0, "\"ipv4-route\": []" } };
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

// A route without any joins yet still has an incoming interface.
TEST_F( ShowShownRouter, AnIncomingInterfaceAloneIsAnAnswer ) {
   router.red.vrf().sg( "192.0.2.9", "239.5.5.5" ).spTree().rpf( "eth7" );
   router.red.publish();
   EXPECT_EQ( shown( "interfaces --vrf red --group 239.5.5.5" ).status, 0 );
}

// The numbers of matching routes in default IPv4, default IPv6 and red.
TEST_F( ShowShownRouter, CountsWhatEachFilterTakes ) {
   const std::tuple<const char*, const char*, int> rows[] = {
      { "", "5 1 0", 0 },
      { "--vrf all", "5 1 0", 0 },
      { "--vrf default", "5 1", 0 },
      { "--vrf red", "0", 0 },
      { "-4", "5 0", 0 },
      { "-6", "1", 0 },
      { "--group 239.1.2.3", "3 0", 0 },
      { "--group ff00::/8", "1", 0 },
      { "--source 198.51.100.0/24", "2 0", 0 },
      { "--iface eth4", "2 0 0", 0 },
      { "--iif eth0", "3 1 0", 0 },
      { "--kind wc", "2 1 0", 0 },
      { "--kind sg", "3 0 0", 0 },
      { "--forwarding", "2 1 0", 0 },
      { "--not-forwarding", "4 0 0", 0 },
      { "--iface eth3 --not-forwarding", "1 0 0", 0 },
      { "--vrf default -6 --kind wc --iif eth0 --iface eth1 --forwarding", "1", 0 },
      { "-4 --vrf default --group 239.1.2.0/24 --source 198.51.100.0/24 --kind sg "
        "--iif eth1 --iface eth2 --forwarding",
        "1", 0 },
      { "-4 --vrf default --group 239.1.2.0/24 --source 198.51.100.0/24 --kind sg "
        "--iif eth1 --iface eth2 --not-forwarding",
        "0", 1 } };
   for ( const auto& [options, counts, status] : rows ) {
      SCOPED_TRACE( options );
      const Ended ended = shown( std::string( options ) + " --count" );
      EXPECT_EQ( ended.status, status ) << ended.err;
      std::istringstream lines( ended.out );
      std::string found;
      for ( std::string line; std::getline( lines, line ); )
         found +=
            ( found.empty() ? "" : " " ) +
            std::to_string( std::stoi( line.substr( line.find( ": " ) + 2 ) ) );
      EXPECT_EQ( found, counts ) << ended.out;
   }
}

TEST_F( ShowShownRouter, SaysThatItCannotWrite ) {
   const Ended ended = Mox::Test::runToEnd(
      { "/bin/sh", "-c",
        "exec " PIMSM_SHOW " --root " + router.root.path() + " >/dev/full" } );
   expectComplaint( ended, 9, "cannot write the output" );
   // The file would exceed the size limit; its beginning is removed.
   const std::string file = empty.path() + "/metrics";
   expectComplaint( Mox::Test::runToEnd(
                       { "/bin/sh", "-c",
                         "ulimit -f 1; exec " PIMSM_SHOW " --root " +
                            router.root.path() + " metrics --output " + file } ),
                    9, "cannot write " + file );
   EXPECT_TRUE( std::filesystem::is_empty( empty.path() ) );
}

// Damages the tables of routes, of the agent's other state, and of registers.
TEST_F( ShowShownRouter, LeavesOutWhatDoesNotVerifyAndSaysSoByItsStatus ) {
   router.publishInterfaces();
   const auto fileOf = [&]( const std::string& entity, const char* table ) {
      return router.root.path() + '/' + entity + '/' + table;
   };
   const std::string whole = shown( "-4 --vrf default" ).out;
   Mox::Test::breakRecord( fileOf( router.agent->name(), "interface" ),
                           SmTest::intfId( "eth3" ), 64 );
   Ended ended = shown( "interfaces -4 --vrf default --iface eth3" );
   EXPECT_EQ( ended.status, 8 );
   EXPECT_EQ( ended.out.find( "192.0.2.130" ), std::string::npos ) << ended.out;
   // A key that was never written.
   Mox::Test::breakSlot( fileOf( router.ipv4.path, "route" ),
                         SmTest::sgKey( "203.0.113.9", "239.0.0.1" ),
                         Mox::Test::kBeforeRecord + 5 );
   ended = shown( "-4 --vrf default" );
   EXPECT_EQ( ended.status, 8 );
   EXPECT_EQ( countLines( ended.out ), countLines( whole ) - 2 ) << ended.out;
   EXPECT_NE( ended.out.find( "4 routes" ), std::string::npos ) << ended.out;
   EXPECT_NE( ended.err.find( "vrf default ipv4: 2 unreadable records" ),
              std::string::npos )
      << ended.err;
   EXPECT_EQ( shown( "check" ).status, 1 );
   EXPECT_EQ( shown( "--vrf red" ).status, 0 );
}

TEST_F( ShowProgram, RefusesWrongUsage ) {
   const std::pair<const char*, const char*> rows[] = {
      { "--what", "--what" },
      { "explode", "explode" },
      { "-4 -6", "-6" },
      { "-4 status -6", "-6" },
      { "--kind both", "both" },
      { "--group banana", "banana" },
      { "--group ''", "must not be empty" },
      { "--root ''", "must not be empty" },
      { "--iface ''", "must not be empty" },
      { "metrics --output ''", "must not be empty" },
      { "--iif an-interface-of-32-bytes-in-length", "more than 31 bytes" },
      { "-6 --group 239.0.0.0/8", "address family" },
      { "--source 192.0.2.1 --group ff0e::1", "address family" },
      { "--detail --json", "--detail" },
      { "--forwarding routes --not-forwarding", "--not-forwarding" },
      { "explain * 239.1.2.3 --all", "--macro" },
      { "explain * 239.1.2.3 --failover eth1", "--macro" },
      { "explain * 239.1.2.3 --received banana", "--macro" },
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
   expectComplaint( shown( "explain * 239.1.2.3 eth9" ), 1,
                    "no record of eth9: it has eth2, eth3, eth5" );
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
   expectComplaint( shown( "explain * 239.1.2.3 --macro couldAssertSg" ), 2,
                    "name one, too" );
   expectComplaint( shown( "explain * 239.1.2.3 eth2 --macro joinDesiredWc" ), 2,
                    "name no interface" );
}

TEST_F( ShowShownRouter, SaysThatThereAreNoTables ) {
   expectComplaint( show( empty.path() ), 3, "start pimsm-agent" );
   expectComplaint( show( empty.path() + "/absent" ), 3, "/absent" );
   expectComplaint( shown( "--vrf blue" ), 3, "there are default, red" );
   expectComplaint( shown( "-6 --vrf red" ), 3, "vrf red" );
}

TEST_F( ShowShownRouter, RefusesALayoutThatIsNotItsOwn ) {
   const std::string root = router.root.path();
   std::string route = root + '/' + router.ipv4.path + "/route";
   ASSERT_TRUE( std::filesystem::exists( route ) );
   {
      // The word behind the magic word is the layout's version.
      std::fstream file( route, std::ios::in | std::ios::out | std::ios::binary );
      file.seekp( 8 );
      file.put( 99 );
   }
   expectComplaint( shown( "-4 --vrf default" ), 4, "version" );
   EXPECT_EQ( shown( "-6" ).status, 0 );
   EXPECT_EQ( shown( "registers -4" ).status, 0 ) << "needs no routes";
   std::filesystem::resize_file(
      root + '/' + router.ipv4.registers->name() + "/drDiscoveredSg", 100 );
   expectComplaint( shown( "registers -4 --vrf default" ), 3, "drDiscoveredSg" );
   std::filesystem::remove( root + '/' + router.ipv4.advertised->name() + "/coll" );
   expectComplaint( shown( "advertised -4 --vrf default" ), 3, "coll is missing" );
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
counter pimsm_table_writes 4
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
   expectComplaint( shown( "metrics --output " + empty.path() + "/no/file" ), 9,
                    "cannot write" );
}

TEST_F( ShowShownRouter, SaysWhichGroupMayRead ) {
   const std::string nobody = "65534", setpriv = "/usr/bin/setpriv";
   if ( geteuid() != 0 || !std::filesystem::exists( setpriv ) ||
        Mox::Test::runToEnd( { setpriv, "--reuid", nobody, "--clear-groups",
                               PIMSM_SHOW, "--version" } )
              .status != 0 )
      GTEST_SKIP() << "cannot run the program as somebody else";
   auto complained = [&] {
      return Mox::Test::runToEnd( { setpriv, "--reuid", nobody, "--regid", nobody,
                                    "--clear-groups", PIMSM_SHOW, "--root",
                                    router.root.path() } );
   };
   expectComplaint( complained(), 3, "only root may look" );
   ASSERT_EQ( chown( router.root.path().c_str(), 0, 1 ), 0 );
   expectComplaint( complained(), 3, "join the group " );
}

TEST_F( ShowShownRouter, PrintsWhatIsSoundBesideWhatIsNot ) {
   std::filesystem::remove( router.root.path() + '/' + router.ipv6.path +
                            "/routeIntf" );
   for ( const char* command : { "routes", "status", "check", "metrics" } ) {
      SCOPED_TRACE( command );
      const Ended ended = shown( command );
      EXPECT_EQ( ended.status, 3 );
      EXPECT_NE( ended.out.find( "red" ), std::string::npos ) << ended.out;
      EXPECT_EQ( ended.err.rfind( "pimsm-show: vrf default ipv6: ", 0 ), 0U )
         << ended.err;
      EXPECT_EQ( countLines( ended.err ), 1U ) << ended.err;
   }
   EXPECT_EQ( shown( "--vrf red" ).err, "" );
   EXPECT_EQ( shown( "-4" ).status, 0 );
}

// The agent does not remove files that it did not make.
TEST_F( ShowShownRouter, SaysWhatIsToBeRemoved ) {
   const std::string table =
      router.root.path() + '/' + router.ipv4.path + "/routeIntf";
   std::filesystem::remove( table );
   std::filesystem::create_directory( table );
   expectComplaint( shown( "-4 --vrf default" ), 3, "remove it" );
   std::filesystem::remove( table );
   ASSERT_EQ( mkfifo( table.c_str(), 0640 ), 0 );
   expectComplaint( shown( "-4 --vrf default" ), 3, "remove it" );
}

// No file content makes the tool hang or crash.
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

// The member in an envelope's address family.
const nlohmann::json& dataOf( const nlohmann::json& envelope, const char* member ) {
   return envelope.at( "data" )
      .at( "ietf-network-instance:network-instances" )
      .at( "network-instance" )
      .at( 0 )
      .at( "vrf-root" )
      .at( "ietf-routing:routing" )
      .at( "control-plane-protocols" )
      .at( "ietf-pim-base:pim" )
      .at( "address-family" )
      .at( 0 )
      .at( member );
}

TEST_F( ShowShownRouter, GivesOneJsonDocument ) {
   auto routes = json( "--json" );
   ASSERT_EQ( routes.size(), 3U );
   EXPECT_EQ( routes[0]["vrf"], "default" );
   EXPECT_EQ( routes[0]["family"], "ipv4" );
   EXPECT_EQ( routes[0]["writer"], "running" );
   const char* tree = "topology-tree-info";
   EXPECT_EQ( dataOf( routes[0], tree )["ipv4-route"].size(), 6U )
      << "five, one with a second entry";
   EXPECT_EQ( routes[2]["vrf"], "red" );
   EXPECT_TRUE( dataOf( routes[2], tree )["ipv4-route"].empty() );
   EXPECT_EQ(
      dataOf( json( "status --json" )[0], "pimsm-state:status" )["sg-routes"], 3 );
   auto count = json( "-4 --vrf default --kind wc --count --json" );
   EXPECT_EQ( dataOf( count[0], "pimsm-state:route-count" ),
              nlohmann::json( { { "matching", 2 }, { "routes", 5 } } ) );
   std::istringstream lines( shown( "-4 --json-lines" ).out );
   for ( std::string line; std::getline( lines, line ); ) {
      auto envelope = nlohmann::json::parse( line );
      EXPECT_EQ( dataOf( envelope, tree )["ipv4-route"].size(), 1U ) << line;
   }
}

// Every state of a route and of its interfaces.
void addShapes( SmTest::Vrf vrf ) {
   namespace Sm = Routing::Pim::SparseMode;
   auto wc = vrf.wc( "239.9.0.1" ).rpTree().rpf( "eth0" );
   auto sg = vrf.sg( "192.0.2.1", "239.9.0.1" ).rpf( "eth1" ).attached();
   sg.prevRpf( "eth2" ).rpfFrr( SmTest::rpfBy( "eth3" ) ).mbr( "eth4" ).upJoined();
   sg->routeFlagsIs( Sm::Route::RouteFlags( Sm::Route::RouteFlags::limit ) );
   int next = 0;
   const auto intf = [&]( SmTest::RouteBuilder route ) {
      return route.intf( "eth" + std::to_string( next++ % 10 ) );
   };
   for ( auto state :
         { Sm::Intf::noInfo, Sm::Intf::prunePending, Sm::Intf::joined } )
      intf( sg ).joinState( state ).include().exclude()->forwardIs( true );
   intf( sg ).lostAssert( "[R] 192.0.2.9 [2147483647/4294967295]" );
   intf( sg ).wonAssert( "[S] 192.0.2.8 [0/0]" )->toBeDeletedIs( true );
   for ( auto switched : { Sm::Route::notSwitching, Sm::Route::switchIifUpdated,
                           Sm::Route::wrongVifRecd, Sm::Route::intervalElapsed,
                           Sm::Route::hwSwitchComplete } ) {
      auto route =
         vrf.sg( "192.0.2." + std::to_string( 10 + next++ ), "239.9.0.1" );
      route.iifSwitching( switched )->iifSwitchPendingIs( true );
      for ( auto state :
            { Sm::upRptNotPruned, Sm::upRptNotJoined, Sm::upRptPruned } )
         vrf.sg( "192.0.2." + std::to_string( 100 + next++ ), "239.9.0.1" )
            .upRpt( state );
   }
   for ( auto state :
         { Sm::Intf::rptNoInfo, Sm::Intf::rptPruned, Sm::Intf::rptPrunePending,
           Sm::Intf::rptPruneTemp, Sm::Intf::rptPrunePendingTemp } ) {
      auto pruned = intf( vrf.sg( "192.0.2.99", "239.9.0.1" ).rpTree() );
      pruned.rptState( state )->lastRptPruneReceivedIs( 1 );
      wc.intf( pruned->intfId().name() ).joined();
   }
   // One route for each reason that keeps an interface out.
   auto kept = vrf.sg( "192.0.2.98", "239.9.0.1" ).spTree().rpf( "eth9" );
   for ( const char* name : { "eth7", "eth8", "eth9" } ) kept.intf( name );
   kept.intf( "eth8" ).joined().lostAssertTo( "192.0.2.66" );
   auto excluded = vrf.sg( "192.0.2.97", "239.9.0.1" );
   excluded.intf( "eth3" ).exclude();
   wc.intf( "eth3" ).include();
   excluded.intf( "eth4" ).lostAssertTo( "192.0.2.66" );
   wc.intf( "eth4" ).joined();
   excluded.intf( "eth5" );
   wc.intf( "eth5" ).joined().lostAssertTo( "192.0.2.66" );
}

// Runs yanglint; skips without it, or without the IETF modules.
TEST_F( ShowShownRouter, JsonIsValidByItsYangModules ) {
   router.publishInterfaces();
   router.publishGroups();
   addShapes( router.ipv4.vrf() );
   router.ipv4.publish();
   const char* named = std::getenv( "PIMSM_YANG" );
   Program::Arguments command = {
      PIMSM_YANG_CHECK, named != nullptr ? named : PIMSM_YANG_MODULES,
      PIMSM_YANG_MODULE,
      "Port-Channel20,eth0,eth1,eth2,eth3,eth4,eth5,eth6,eth7,eth8,eth9" };
   for ( const char* options :
         { "routes", "routes --count", "routes --json-lines --kind wc",
           "interfaces", "registers", "advertised", "histogram", "status", "check",
           "explain 198.51.100.7 239.1.2.3",
           "explain 198.51.100.7 239.1.2.3 eth3 --macro lostAssertSg" } ) {
      std::string all = options;
      if ( all.find( "--json-lines" ) == std::string::npos ) all += " --json";
      command.push_back( empty.path() + '/' + std::to_string( command.size() ) );
      std::ofstream( command.back() ) << shown( all ).out;
   }
   const Ended ended = Mox::Test::runToEnd( command );
   if ( ended.status == 77 ) GTEST_SKIP() << ended.out;
   EXPECT_EQ( ended.status, 0 ) << ended.out << ended.err;
}

}
}
