// A user's own agent over the engines in place of ours: the forwarding process and
// the show tool work with it unchanged.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "tests/netns/Forwarder.h"
#include "tests/netns/NetworkTest.h"

namespace Netns {
namespace {

using Mox::Test::Program;
using Vantu::IpGenAddr;

// The stream's source and RP are behind another router, reached only by a host
// route.
class OwnAgent : public NetworkTest {
 protected:
   static constexpr const char* kFar = "10.98.0.2";
   // A less specific route by another link, used only without the specific one.
   static constexpr const char* kWide = "route add 10.98.0.0/16 via 10.99.1.2";
   static constexpr const char* kRoute = "route add 10.98.0.0/24 via 10.99.0.2";

   void SetUp() override {
#ifdef PIMSM_SANITIZED
      GTEST_SKIP() << "real time: not with programs that the sanitizers slow down";
#endif
      NetworkTest::SetUp();
      if ( IsSkipped() ) return;
      net->router.ip( kWide );
      // A host sends from an interface's first address.
      net->source.ip( "addr flush dev s0" );
      net->source.ip( "addr add 10.98.0.2/24 dev s0" );
      net->source.ip( "addr add 10.99.0.2/24 dev s0" );
      std::ofstream( config() ) << Topology::config(
         "    rpf: kernel\n    rps:\n    - address: 10.98.0.2\n" );
      forwarder = std::make_unique<Forwarder>( *net, root.path(), config() );
   }
   std::string config() const {
      return root.path() + "/router.yaml";
   }
   std::string state() const override {
      return show( { "--detail" } ) + kernel() + agent->err() +
             forwarder->program().err();
   }

   void start( Program::Arguments command ) {
      agent.reset();
      Namespace::Inside inside( net->router );
      agent = std::make_unique<Program>( command );
   }
   void startOwn() {
      start( { PIMSM_OWN_AGENT, root.path(), kFar, "r0", "r1", "r2" } );
   }
   void startOurs() {
      start( { PIMSM_AGENT, "--root", root.path(), "--config", config(),
               "--interface", "r0", "--interface", "r1", "--interface", "r2" } );
      ASSERT_TRUE( agent->untilErr( "listening" ) ) << agent->err();
   }
   std::string show( Program::Arguments more ) const {
      more.insert( more.begin(), { PIMSM_SHOW, "--root", root.path(), "-4" } );
      const Namespace::Inside inside( net->router );
      const Mox::Test::Ended ended = Mox::Test::runToEnd( more );
      return ended.out + ended.err;
   }
   // The tool's output, without the parts that change with time and traffic.
   std::string answers() const {
      static const std::regex kTimes(
         "\"(up-time|since-last-join|(wrong-interface-)?packets|octets)\":\"[0-9]+"
         "\",?| kat-expired" );
      return show( { "interfaces" } ) +
             std::regex_replace( show( { "--json-lines" } ), kTimes, "" );
   }
   bool shows( const Program::Arguments& what, const std::string& text ) const {
      return eventually(
         [&] { return show( what ).find( text ) != std::string::npos; } );
   }
   // A downstream router on the left link joins the source.
   void join( const std::string& of ) {
      Namespace::Inside inside( net->left );
      const Mox::Test::Ended ended = Mox::Test::runToEnd(
         { "/usr/bin/python3", PIMSM_SOURCE_DIR "/tests/netns/downstream.py", "a0",
           "10.99.1.2", "10.99.1.1", kFar, "join", kFar, of } );
      ASSERT_EQ( ended.status, 0 ) << ended.err;
   }

   std::unique_ptr<Forwarder> forwarder;
   std::unique_ptr<Program> agent;
};

TEST_P( OwnAgent, ForwardsAndIsExplained ) {
   if ( Mox::Test::runToEnd(
           { "/usr/bin/python3", "-c", "import scapy.contrib.pim" } )
           .status != 0 )
      GTEST_SKIP() << "no scapy here (python3-scapy)";
   // A member of all sources of a source-specific group gets nothing; the traffic
   // comes from the downstream router's join.
   const std::string ssm = valueToStrep( group( 1, true ) );
   Receiver left = receiver( 1, group( 1, true ) );
   startOwn();
   ASSERT_TRUE( shows( { "interfaces" }, "r2" ) ) << state();
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   Sender specific = sender( 0, group( 1, true ) );
   Sender any = sender( 0, group( 1 ) );
   Receiver right = receiver( 2, group( 1 ) );
   ASSERT_TRUE( shows( {}, "(*, 239.9.9.1)" ) ) << state();
   join( ssm );
   ASSERT_TRUE( shows( {}, ssm ) ) << state();
   EXPECT_TRUE( left.received().empty() && right.received().empty() );
   // Existing routes follow the host's route changes.
   net->router.ip( kRoute );
   EXPECT_TRUE( flows( right, any ) );
   EXPECT_TRUE( flows( left, specific ) );
   const std::vector<Program::Arguments> kExplained = {
      { "explain", kFar, ssm, "r1" }, { "explain", "*", "239.9.9.1", "r2" } };
   for ( const auto& question : kExplained ) {
      // Under load the counters may be late.
      EXPECT_TRUE( shows( question, "packets/s by pimsm-mfib's counters" ) );
      const std::string told = show( question );
      for ( const char* fact : { " forwards\n", "has the entry: in " } )
         EXPECT_NE( told.find( fact ), std::string::npos ) << fact << '\n' << told;
      EXPECT_EQ( told.find( "unknown" ), std::string::npos ) << told;
   }
   ASSERT_TRUE( shows( { "status" }, "unresolved 0" ) ) << show( { "status" } );
   EXPECT_EQ( show( { "status" } ).find( "unknown" ), std::string::npos );
   ASSERT_TRUE( shows( { "metrics" }, "{type=\"join-prune\"} 1\n" ) );
   EXPECT_NE( show( { "check" } ).find( " 0 found" ), std::string::npos )
      << show( { "check" } );
   // Our agent takes over its tables, the neighbour included, and gives the same
   // answers.
   const std::string before = answers();
   EXPECT_NE( before.find( "r1    this     1 " ), std::string::npos ) << before;
   EXPECT_NE( before.find( "\"rp-address\":\"10.98.0.2\"" ), std::string::npos );
   agent->signal( SIGTERM );
   EXPECT_EQ( agent->wait(), 0 ) << agent->err();
   startOurs();
   EXPECT_EQ( answers(), before );
}

INSTANTIATE_TEST_SUITE_P( Families, OwnAgent,
                          testing::Values( Vantu::AddressFamily::ipv4 ),
                          []( const auto& ) { return "IPv4"; } );

}
}
