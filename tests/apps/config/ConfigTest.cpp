#include "apps/config/ConfigFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

namespace Agent {
namespace {

using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

AgentConfig parse( const std::string& text ) {
   return parseConfig( text, "agent.yaml" );
}

// The documentation's own example, so that it stays true.
TEST( Config, TheDocumentedExampleIsRead ) {
   std::ifstream file( PIMSM_SOURCE_DIR "/doc/configuration.md" );
   std::stringstream page;
   page << file.rdbuf();
   std::string text = page.str();
   size_t begin = text.find( "```yaml\n" );
   ASSERT_NE( begin, std::string::npos );
   begin += 8;
   AgentConfig config =
      parse( text.substr( begin, text.find( "```", begin ) - begin ) );
   ASSERT_EQ( config.vrfs.size(), 2u );
   const VrfConfig& vrf = config.vrfs[0];
   EXPECT_EQ( vrf.maxRoutes, 20000u );
   EXPECT_FALSE( vrf.requireHello );
   ASSERT_EQ( vrf.interfaces.size(), 3u );
   EXPECT_EQ( vrf.capture( vrf.interfaces[0].name ), "left" );
   EXPECT_EQ( vrf.interfaces[1].drPriority, 100u );
   const auto& addresses = vrf.interfaces[0].addresses;
   ASSERT_EQ( addresses.size(), 2u );
   EXPECT_EQ( addresses[0].address, IpGenAddr( "10.0.0.13" ) );
   EXPECT_EQ( addresses[0].subnet, IpGenPrefix( "10.0.0.0/24" ) );
   EXPECT_EQ( addresses[1].subnet, IpGenPrefix( "2001:db8::/64" ) );
   ASSERT_EQ( vrf.rpfRoutes.size(), 2u );
   EXPECT_EQ( vrf.rpfRoutes[0].neighbor, IpGenAddr( "10.0.1.1" ) );
   EXPECT_EQ( vrf.rpfRoutes[0].preference, 110u );
   EXPECT_EQ( vrf.rpfRoutes[0].metric, 20u );
   EXPECT_TRUE( vrf.rpfRoutes[1].neighbor.isUnspecified() ) << "on the link itself";
   EXPECT_EQ( vrf.rps[0].groups, std::vector{ IpGenPrefix( "239.0.0.0/8" ) } );
   EXPECT_EQ( vrf.anycastRps.at( 0 ),
              ( Router::AnycastRpConfig{ IpGenAddr( "1.1.1.2" ),
                                         IpGenAddr( "10.0.1.2" ),
                                         { IpGenAddr( "10.0.1.9" ) } } ) );
   ASSERT_EQ( vrf.advertised.size(), 2u );
   EXPECT_EQ( vrf.advertised[0].source, IpGenAddr( "10.0.0.7" ) );
   EXPECT_EQ( vrf.advertised[0].group, IpGenAddr( "239.1.2.3" ) );
   EXPECT_EQ( vrf.advertised[1].rp, IpGenAddr( "1.1.1.2" ) );
   EXPECT_TRUE( vrf.advertised[1].anycast && !vrf.advertised[0].anycast );
   EXPECT_EQ( config.vrfs[1].mrouteTable, 10u );
   EXPECT_TRUE( config.vrfs[1].kernelRpf && !vrf.kernelRpf );
   EXPECT_EQ( config.vrfs[1].routeTable, 11u );
}

TEST( Config, VrfsMayHaveTheSameAddresses ) {
   std::string text = "vrfs:\n";
   for ( std::string name : { "red", "blue" } )
      text += "- name: " + name + "\n  interfaces: [{name: " + name +
              "0, addresses: [10.0.0.1/24]}]\n"
              "  rps: [{address: 2001:db8::1}]\n";
   EXPECT_EQ( parse( text ).vrfs.at( 1 ).rps[0].groups,
              std::vector{ IpGenPrefix( "ff00::/8" ) } );
}

TEST( Config, WithoutOneAnInterfaceIsAssumedAndSaidSo ) {
   AgentConfig config = assumedConfig( IpGenAddr( "10.0.0.13" ) );
   EXPECT_EQ( captureBindings( config )[""].interface, Vantu::IntfId( "eth0" ) );
   EXPECT_EQ( config.vrfs[0].interfaces[0].addresses[0].subnet,
              IpGenPrefix( "10.0.0.0/24" ) );
   EXPECT_EQ(
      assumedConfigText( IpGenAddr( "2001:db8::1" ) ),
      "no configuration: assuming interface eth0 of VRF default with address "
      "2001:db8::1/64, no RP and no RPF route" );
}

TEST( Config, CapturesFindTheirInterface ) {
   AgentConfig config = parse(
      "vrfs:\n- name: a\n  interfaces:\n  - {name: eth0, capture: left}\n"
      "- name: b\n  interfaces:\n  - name: eth1\n" );
   EXPECT_EQ( captureBindings( config )["left"].interface,
              Vantu::IntfId( "eth0" ) );
   EXPECT_EQ( captureBindings( config )["eth1"].vrf, L3::VrfName( "b" ) );
   EXPECT_EQ( captureBindings( config )["eth0"].interface, Vantu::IntfId() );
   EXPECT_EQ( captureBindings( config )[""].interface, Vantu::IntfId() )
      << "there are two";
}

// The VRFs of a reading, or its error.
template <class Read>
std::pair<std::vector<VrfConfig>, std::string> result( Read read ) {
   try {
      return { read().vrfs, "" };
   } catch ( const ConfigError& e ) {
      return { {}, e.what() };
   }
}

TEST( Config, ReadAgainItIsAsIfReadAnew ) {
   const unsigned seed = std::random_device{}();
   SCOPED_TRACE( seed );
   std::mt19937 random( seed );
   auto pick = [&]( size_t below ) { return random() % below; };
   const std::vector<std::string> pieces = {
      "# note\n", "\n",       "  ",   "- ",    "\"",
      "[",        "&a ",      "*a",   "---\n", "...\n",
      "vrfs:\n",  "name: v1", "eth1", "  - ",  ":",
      "\t",       "1",        "7",    "|\n",   "\n  -\n    name: v9\n" };
   ConfigFile file( "agent.yaml" );
   size_t parsed = 0, read = 0;
   std::string good;
   for ( int i = 0; i < 2000; ++i ) {
      if ( good.empty() || pick( 20 ) == 0 ) {
         good = "# VRFs\nvrfs:\n";
         for ( size_t v = 0; v <= pick( 6 ); ++v )
            good += "  - name: v" + std::to_string( v ) +
                    "\n    interfaces:\n    - {name: eth" + std::to_string( v ) +
                    ", addresses: [10.0.0.1/24]}\n    mroute-table: " +
                    std::to_string( 100 + v ) + "\n";
      }
      std::string text = good;
      text.replace( pick( text.size() ), pick( 4 ), pieces[pick( pieces.size() )] );
      const auto now = result( [&] { return file.read( text ); } );
      ASSERT_EQ( now, result( [&] { return parse( text ); } ) ) << text;
      if ( !now.second.empty() ) continue;
      good = text;
      ++read;
      parsed += now.first.size() == file.parsed() ? 1 : 0;
   }
   EXPECT_LT( parsed, read ) << "some VRFs are known";
}

}
}
