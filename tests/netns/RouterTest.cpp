// A whole router: the agent listens on its interfaces, the forwarding process follows
// its tables, hosts join with ordinary socket calls.
#include <linux/rtnetlink.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "tests/netns/Forwarder.h"
#include "tests/netns/NetworkTest.h"

namespace Netns {
namespace {

using Json = nlohmann::json;
using Mox::Test::Program;
using Vantu::IpGenAddr;

// The RP is the host on the source's link.
class LiveRouter : public NetworkTest {
 protected:
   void SetUp() override {
#ifdef PIMSM_SANITIZED
      GTEST_SKIP() << "real time: not with programs that the sanitizers slow down";
#endif
      NetworkTest::SetUp();
      if ( IsSkipped() ) return;
      configure();
      forwarder = std::make_unique<Forwarder>(
         *net, root.path(), config(), Program::Arguments{ "--counters", "0.1" } );
      Namespace::Inside inside( net->router );
      agent = std::make_unique<Program>( Program::Arguments{
         PIMSM_AGENT, "--config", config(), "--root", root.path(), "--listen" } );
      ASSERT_TRUE( agent->untilErr( "listening" ) ) << agent->err();
      ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   }
   void configure( const std::string& interfaces = "" ) const {
      std::ofstream( config() ) << Topology::config(
         interfaces + "    rpf: kernel\n    rps:\n" + "    - address: \"" +
         valueToStrep( host( 0 ) ) + "\"\n" );
   }
   std::string config() const {
      return root.path() + "/router.yaml";
   }

   std::string show( Program::Arguments more ) const {
      more.insert( more.begin(), { PIMSM_SHOW, "--root", root.path() } );
      return Mox::Test::runToEnd( more ).out;
   }
   std::string state() const override {
      return show( {} ) + kernel() + agent->err();
   }
   using Olists = std::map<std::string, std::set<std::string>>;
   Json routeOf( const Json& line ) const {
      const Json::json_pointer kRoutes(
         "/data/ietf-network-instance:network-instances/network-instance/0/vrf-root"
         "/ietf-routing:routing/control-plane-protocols/ietf-pim-base:pim"
         "/address-family/0/topology-tree-info" );
      return line.at( kRoutes ).at( ipv4() ? "ipv4-route" : "ipv6-route" ).at( 0 );
   }
   // The outgoing lists that the tool shows, of routes with an incoming interface, by
   // "(source, group) from incoming"; "*" is any source.
   Olists shownOlists() const {
      Olists out;
      std::istringstream lines( show( { ipv4() ? "-4" : "-6", "--json-lines" } ) );
      for ( std::string line; std::getline( lines, line ); ) {
         const Json route = routeOf( Json::parse( line ) );
         // An (S,G,rpt) entry has upstream states only.
         if ( !route.contains( "incoming-interface" ) ||
              !route.contains( "outgoing-interface" ) )
            continue;
         std::set<std::string>& olist =
            out["(" + route.at( "source-address" ).get<std::string>() + ", " +
                route.at( "group" ).get<std::string>() + ") from " +
                route.at( "incoming-interface" ).get<std::string>()];
         for ( const Json& intf : route.at( "outgoing-interface" ) )
            olist.insert( intf["name"].get<std::string>() );
      }
      return out;
   }
   // The same lists in the kernel: resolved entries only. A (*,G) entry also lists
   // its incoming interface.
   Olists kernelOlists() const {
      Olists out;
      static const std::regex kEntry(
         R"(\((\S+),(\S+)\)\s+Iif: (\S+)(?:\s+Oifs: ([^S]*))?\s*State: resolved)" );
      const std::string text = kernel();
      for ( std::sregex_iterator it( text.begin(), text.end(), kEntry ), end;
            it != end; ++it ) {
         std::string source = ( *it )[1], iif = ( *it )[3];
         bool any = source == "0.0.0.0" || source == "::";
         std::set<std::string>& olist = out["(" + ( any ? "*" : source ) + ", " +
                                            ( *it )[2].str() + ") from " + iif];
         std::istringstream names( ( *it )[4].str() );
         for ( std::string name; names >> name; ) {
            if ( name != iif ) olist.insert( name );
         }
      }
      return out;
   }
   bool agree() const {
      return eventually( [&] { return shownOlists() == kernelOlists(); } );
   }

   // How often the router's system tells that some interface has changed.
   int linkChangesWhile( const std::function<void()>& wait ) const {
      const Namespace::Inside inside( net->router );
      const Mox::Loop::Fd told(
         socket( AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC,
                 NETLINK_ROUTE ),
         "socket" );
      sockaddr_nl links{ AF_NETLINK, 0, 0, RTMGRP_LINK };
      EXPECT_EQ(
         bind( told.value(), reinterpret_cast<sockaddr*>( &links ), sizeof links ),
         0 );
      wait();
      int count = 0;
      for ( char message[8192];
            recv( told.value(), message, sizeof message, 0 ) > 0; )
         ++count;
      return count;
   }

   std::unique_ptr<Forwarder> forwarder;
   std::unique_ptr<Program> agent;
};

TEST_P( LiveRouter, InterfacesComeAndGo ) {
   Sender stream = sender( 0, group( 1 ) );
   Receiver left = receiver( 1, group( 1 ) );
   ASSERT_TRUE( flows( left, stream ) );
   // The kernel has dropped the packets that waited for the route.
   ASSERT_TRUE( agree() ) << show( {} ) << kernel();
   left.forget();
   // Of root's capabilities it keeps the one that opens new interfaces.
   for ( const char* set : { "CapPrm", "CapEff" } )
      EXPECT_EQ( Mox::Test::statusLine( agent->pid(), set ), "0000000000002000" );
   EXPECT_EQ( Mox::Test::statusLine( agent->pid(), "NoNewPrivs" ), "1" );
   net->router.ip( "link add r4 type veth peer name c4" );
   configure(
      "      - {name: r3, addresses: [10.99.3.1/24, "
      "\"2001:db8:99:3::1/64\"]}\n"
      "      - {name: r4, addresses: [10.99.4.1/24]}\n" );
   for ( Program* each : { agent.get(), &forwarder->program() } ) {
      each->signal( SIGHUP );
      ASSERT_TRUE( each->untilErr( "took up" ) ) << each->err();
   }
   ASSERT_TRUE( agent->untilErr( "r3: there is none of that name; waiting" ) );
   ASSERT_TRUE( agent->untilErr( "r4: it is down; waiting" ) ) << agent->err();
   // It is left alone: the system would tell of each attempt, and cause the next.
   EXPECT_EQ( linkChangesWhile( [&] { ASSERT_TRUE( flows( left, stream ) ); } ),
              0 );
   // Without a file to be had it is tried again each second.
   const rlimit none{ 0, 1024 }, some{ 1024, 1024 };
   prlimit( agent->pid(), RLIMIT_NOFILE, &none, nullptr );
   net->router.ip( "link set r4 up" );
   ASSERT_TRUE( flows( left, stream ) );
   prlimit( agent->pid(), RLIMIT_NOFILE, &some, nullptr );
   ASSERT_TRUE( agent->untilErr( "r4: is heard" ) ) << agent->err();
   {
      Namespace late;
      connect( net->router, "r3", late, "c0" );
      ASSERT_TRUE( agent->untilErr( "r3: is heard" ) ) << agent->err();
      Receiver third( late, "c0", group( 1 ) );
      EXPECT_TRUE( flows( third, stream ) );
      net->router.ip( "link delete r3" );
   }
   ASSERT_TRUE( flows( left, stream ) );
   configure();
   agent->signal( SIGHUP );
   ASSERT_TRUE(
      eventually( [&] { return show( {} ).find( "r3" ) == std::string::npos; } ) );
   EXPECT_EQ( left.faults(), Faults() );
   // An interface given by name has to exist: outside the test network it does not.
   Mox::Test::Ended refused =
      Mox::Test::runToEnd( { PIMSM_AGENT, "--config", config(), "--root",
                             root.path() + "/other", "--interface", "r0" } );
   EXPECT_EQ( refused.status, 9 );
   EXPECT_EQ( refused.err.rfind( "pimsm-agent: r0: ", 0 ), 0u ) << refused.err;
}

INSTANTIATE_FOR_FAMILIES( LiveRouter );

}
}
