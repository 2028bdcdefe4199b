// The agent as a program: its start, refusals, and end.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "tests/apps/agent/Captures.h"
#include "tests/apps/process/Site.h"

namespace Agent {
namespace {

using Mox::Test::runToEnd;

class AgentProgram : public testing::Test {
 protected:
   Site site;
};

TEST_F( AgentProgram, LeavesRoutesThatTheNextOneTakesUp ) {
   for ( int signal : { SIGTERM, SIGINT, SIGKILL } ) {
      SCOPED_TRACE( strsignal( signal ) );
      std::string before;
      {
         Program agent( site.fedAgent() );
         ASSERT_TRUE( agent.untilErr( "replayed 15 of 15" ) ) << agent.err();
         EXPECT_EQ( site.show().status, 0 );
         before = site.routes();
         EXPECT_NE( before.find( "vrf default ipv4: 4 routes" ), std::string::npos )
            << before;
         EXPECT_NE( before.find( "vrf default ipv6: 2 routes" ), std::string::npos )
            << before;
         agent.signal( signal );
         EXPECT_EQ( agent.wait(), signal == SIGKILL ? -SIGKILL : 0 ) << agent.err();
      }
      EXPECT_EQ( site.routes(), before ) << "without an agent";
      EXPECT_EQ( site.show().status, 5 );
      Program agent( site.agent() );
      ASSERT_TRUE( agent.untilErr( "replayed 0 of 0" ) ) << agent.err();
      EXPECT_EQ( site.show().status, 0 );
      EXPECT_EQ( site.routes(), before );
   }
}

TEST_F( AgentProgram, IsRefusedWhileAnotherHoldsTheTables ) {
   Program first( site.agent() );
   ASSERT_TRUE( first.untilErr( "replayed" ) ) << first.err();
   for ( const char* set : { "CapPrm", "CapEff" } )
      EXPECT_EQ( Mox::Test::statusLine( first.pid(), set ), "0000000000000000" );
   Ended second = runToEnd( site.agent() );
   EXPECT_EQ( second.status, 6 );
   EXPECT_NE( second.err.find( std::to_string( first.pid() ) ), std::string::npos )
      << second.err;
   EXPECT_EQ( linesOf( second.err ).size(), 1U ) << second.err;
   EXPECT_EQ( site.show().status, 0 ) << "the first still writes";
   first.signal( SIGKILL );
   first.wait();
   Program third( site.agent() );
   EXPECT_TRUE( third.untilErr( "replayed" ) ) << third.err();
}

TEST_F( AgentProgram, SaysWhatItCouldNotTakeUp ) {
   ASSERT_EQ( runToEnd( site.fedAgent( { "--exit-at-end" } ) ).status, 0 );
   std::ofstream( site.root() + "/routing/pim/sparsemode/status/default/route",
                  std::ios::binary | std::ios::trunc )
      << std::string( 5000, 'x' );
   Ended ended = runToEnd( site.agent( { "--exit-at-end" } ) );
   EXPECT_EQ( ended.status, 0 );
   EXPECT_NE( ended.err.find( "status/default/route: " ), std::string::npos )
      << ended.err;
   EXPECT_NE( ended.err.find( ": made anew, empty\n" ), std::string::npos )
      << ended.err;
   EXPECT_NE( ended.err.find( "vrf default ipv4: 0 routes" ), std::string::npos )
      << ended.err;
   EXPECT_NE( ended.err.find( "vrf default ipv6: 2 routes" ), std::string::npos )
      << ended.err;
}

// Damages some words of each table that has records, in the last rounds also the
// headers.
void damageTables( const std::string& root, std::mt19937_64& random,
                   bool headers ) {
   for ( const auto& entry :
         std::filesystem::recursive_directory_iterator( root ) ) {
      if ( !entry.is_regular_file() || entry.path().has_extension() ) continue;
      std::string bytes = bytesOf( entry.path() );
      std::vector<size_t> taken;
      for ( size_t at = headers ? 0 : 8192; at + 8 <= bytes.size(); at += 8 ) {
         if ( bytes.compare( at, 8, std::string( 8, '\0' ) ) != 0 )
            taken.push_back( at );
      }
      std::fstream file( entry.path(),
                         std::ios::in | std::ios::out | std::ios::binary );
      for ( int i = 0; i < 6 && !taken.empty(); ++i ) {
         size_t at = taken[random() % taken.size()] + random() % 8;
         file.seekp( static_cast<std::streamoff>( at ) );
         file.put( static_cast<char>( bytes[at] ^ static_cast<char>( random() ) ) );
      }
   }
}

// Repairable tables are repaired, the others start empty; the next agent has
// nothing to report.
TEST_F( AgentProgram, StartsOverWhateverDamageAndEndsIt ) {
   const uint64_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   for ( int round = 0; round < 6 && !HasFailure(); ++round ) {
      ASSERT_EQ( runToEnd( site.fedAgent( { "--exit-at-end" } ) ).status, 0 );
      damageTables( site.root(), random, round >= 4 );
      Ended repairing = runToEnd( site.agent( { "--exit-at-end" } ) );
      EXPECT_EQ( repairing.status, 0 ) << repairing.err;
      EXPECT_NE( repairing.err.find( site.root() ), std::string::npos )
         << "no table is named: " << repairing.err;
      Ended next = runToEnd( site.agent( { "--exit-at-end" } ) );
      EXPECT_EQ( next.status, 0 ) << next.err;
      EXPECT_EQ( next.err.find( site.root() ), std::string::npos ) << next.err;
   }
}

TEST_F( AgentProgram, ExitsAtTheEndOfItsCaptures ) {
   Ended ended = runToEnd( site.fedAgent( { "--exit-at-end" } ) );
   EXPECT_EQ( ended.status, 0 );
   EXPECT_EQ( ended.out, "" );
   EXPECT_EQ( ended.err,
              "replayed 15 of 15 packets\n"
              "packets: hello 5, join-prune 9; dropped: truncatedMessage 1\n"
              "vrf default ipv4: 4 routes\n"
              "vrf default ipv6: 2 routes\n" );
   EXPECT_NE( site.routes().find( "ipv4: 4 routes" ), std::string::npos )
      << "published before the end";
   EXPECT_EQ( runToEnd( site.agent( { "--exit-at-end" } ) ).status, 0 );
}

// Users build alerts on these names and labels.
TEST_F( AgentProgram, HasAMetricOfEachKind ) {
   ASSERT_EQ( runToEnd( site.fedAgent( { "--exit-at-end" } ) ).status, 0 );
   const std::string metrics = site.show( { "metrics" } ).out;
   const std::string ipv4 = "{vrf=\"default\",family=\"ipv4\"";
   for ( const std::string& sample :
         { "pimsm_routes" + ipv4 + ",kind=\"wc\"} ",
           "pimsm_outgoing_interfaces" + ipv4 + "} ",
           "pimsm_routes_pending" + ipv4 + ",state=\"unresolved\"} ",
           "pimsm_table_used_ratio" + ipv4 + ",table=\"advertised\"} ",
           "pimsm_table_used_ratio" + ipv4 + ",table=\"interface\"} ",
           "pimsm_writer_up" + ipv4 + "} 0\n",
           "pimsm_registers" + ipv4 + ",table=\"registerOif\"} ",
           "pimsm_source_groups_count" + ipv4 + "} ",
           "pimsm_group_sources_count" + ipv4 + "} ",
           "pimsm_table_writes_total" + ipv4 +
              ",table=\"route\",result=\"refused\"} 0\n",
           "pimsm_table_writes_total" + ipv4 +
              ",table=\"registerOif\",result=\"asked-to-write\"} ",
           "pimsm_reload_duration_seconds" + ipv4 + "} ",
           "pimsm_reload_routes" + ipv4 + "} 0\n",
           std::string( "pimsm_agent_packets_total{type=\"join-prune\"} 9\n" ),
           std::string( "pimsm_agent_packets_dropped_total{reason=\"truncated-"
                        "message\"} 1\n" ),
           std::string( "pimsm_build_info{version=" ) } )
      EXPECT_NE( metrics.find( '\n' + sample ), std::string::npos )
         << sample << " in\n"
         << metrics;
   for ( const std::string& counted :
         { "pimsm_review_passes_total" + ipv4 + "} ",
           "pimsm_table_writes_total" + ipv4 +
              ",table=\"route\",result=\"written\"} ",
           "pimsm_table_writes_total" + ipv4 +
              ",table=\"routeIntf\",result=\"written\"} " } ) {
      const size_t at = metrics.find( '\n' + counted );
      ASSERT_NE( at, std::string::npos ) << counted << " in\n" << metrics;
      EXPECT_NE( metrics[at + 1 + counted.size()], '0' ) << counted;
   }
   EXPECT_EQ( metrics.find( "not-dropped" ), std::string::npos );
}

TEST_F( AgentProgram, PlaysWhatABrokenOffCaptureHolds ) {
   std::string bytes = bytesOf( demo( "eth2.pcap" ) );
   std::string path = site.write( "cut.pcap", bytes.substr( 0, bytes.size() - 5 ) );
   Ended ended =
      runToEnd( site.agent( { "--read", "eth2=" + path, "--exit-at-end" } ) );
   EXPECT_EQ( ended.status, 8 );
   EXPECT_NE( ended.err.find( "replayed 2 of 2" ), std::string::npos ) << ended.err;
   EXPECT_NE( ended.err.find( path + ": truncated" ), std::string::npos )
      << ended.err;
}

TEST_F( AgentProgram, CountsAMalformedPacket ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   std::string path = *directory / "malformed-pim-header-1.pcap";
   Ended ended = runToEnd( { PIMSM_AGENT, "--root", site.root(), "--router",
                             "fe80::1", "--read", path, "--exit-at-end" } );
   EXPECT_EQ( ended.status, 0 );
   EXPECT_NE( ended.err.find( "dropped: truncatedCapture 1" ), std::string::npos )
      << ended.err;
}

// `arguments` are separated by blanks; capitals stand for files.
struct WrongRow {
   const char* name;
   std::string arguments;
   int status;
   const char* says;
};
std::ostream& operator<<( std::ostream& out, const WrongRow& row ) {
   return out << row.name;
}

class AgentRefuses : public testing::TestWithParam<WrongRow> {};

TEST_P( AgentRefuses, InOneLine ) {
   Site site;
   const std::pair<std::string, std::string> files[] = {
      { "BAD-CONFIG", site.write( "bad.yaml", "vrfs:\n- nam: x\n" ) },
      { "CONFIG", demo( "agent.yaml" ) },
      { "NO-CAPTURE",
        site.write( "no-capture", "This is no capture, only text." ) },
      { "CAPTURE", demo( "eth1.pcap" ) } };
   std::string text = GetParam().arguments;
   if ( text.find( "--root" ) == std::string::npos )
      text += " --root " + site.root();
   for ( const auto& [name, path] : files ) {
      size_t at = text.find( name );
      if ( at != std::string::npos ) text.replace( at, name.size(), path );
   }
   Program::Arguments command = { PIMSM_AGENT };
   std::istringstream words( text );
   for ( std::string word; words >> word; ) command.push_back( word );
   Ended ended = runToEnd( command );
   EXPECT_EQ( ended.status, GetParam().status ) << ended.err;
   EXPECT_EQ( ended.out, "" );
   ASSERT_EQ( linesOf( ended.err ).size(), 1U ) << ended.err;
   EXPECT_EQ( ended.err.rfind( "pimsm-agent: ", 0 ), 0U ) << ended.err;
   EXPECT_NE( ended.err.find( GetParam().says ), std::string::npos ) << ended.err;
}

const WrongRow kWrongRows[] = {
   { "NoConfiguration", "", 2, "--config FILE, or --router ADDRESS" },
   { "ListenWithoutConfiguration", "--listen --router 192.0.2.1", 2, "--config" },
   { "UnknownOption", "--what", 2, "--what" },
   { "BothConfigurations", "--router 192.0.2.1 --config CONFIG", 2, "--router" },
   { "RouterIsNoAddress", "--router 192.0.2.256", 2, "192.0.2.256" },
   { "RouterIsAGroup", "--router 224.0.0.13", 2, "no unicast address" },
   { "RouterIsUnspecified", "--router ::", 2, "no unicast address" },
   { "AbsentConfiguration", "--config /absent.yaml", 2, "/absent.yaml: No" },
   { "FaultyConfiguration", "--config BAD-CONFIG", 2, "bad.yaml:2: " },
   { "EmptyRoot", "--config CONFIG --root=", 2, "--root" },
   { "TablesThatCannotBeMade", "--config CONFIG --root /proc/absent", 9,
     "/proc/absent" },
   { "AbsentCapture", "--config CONFIG --read eth1=/absent.pcap", 2,
     "/absent.pcap: No such file" },
   { "NoCapture", "--config CONFIG --read eth1=NO-CAPTURE", 2,
     "capture: unknown file format" },
   { "CaptureWithoutName", "--config CONFIG --read CAPTURE", 2,
     "--read NAME=FILE" },
   { "CaptureOfUnknownName", "--config CONFIG --read eth9=CAPTURE", 2, "eth9" },
};

INSTANTIATE_TEST_SUITE_P( Reasons, AgentRefuses, testing::ValuesIn( kWrongRows ),
                          []( const auto& row ) { return row.param.name; } );

}
}
