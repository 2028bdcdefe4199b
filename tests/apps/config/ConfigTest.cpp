#include "apps/config/ConfigReader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/support/ErrorText.h"

namespace Agent {
namespace {

using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

AgentConfig parse( const std::string& text ) {
   return parseConfig( text, "agent.yaml" );
}

std::string errorOf( const std::string& text ) {
   return Mox::Test::errorText<ConfigError>( [&] { parse( text ); } );
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
   ASSERT_EQ( vrf.interfaces.size(), 2u );
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
   EXPECT_EQ( vrf.rps[2].anycastPeers, std::vector{ IpGenAddr( "10.0.1.9" ) } );
   ASSERT_EQ( vrf.advertised.size(), 2u );
   EXPECT_EQ( vrf.advertised[0].source, IpGenAddr( "10.0.0.7" ) );
   EXPECT_EQ( vrf.advertised[0].group, IpGenAddr( "239.1.2.3" ) );
   EXPECT_EQ( vrf.advertised[1].rp, IpGenAddr( "1.1.1.2" ) );
   EXPECT_TRUE( vrf.advertised[1].anycast && !vrf.advertised[0].anycast );
   EXPECT_EQ( config.vrfs[1].mrouteTable, 10u );
}

TEST( Config, FaultsNameFileAndLine ) {
   // A VRF with the row's text on line 5, indented like the VRF's keys.
   const std::string vrf =
      "vrfs:\n- name: default\n  interfaces:\n  - {name: eth0}\n";
   struct Row {
      std::string line;
      const char* error;
   };
   auto rpf = []( const char* fields ) {
      return "rpf-routes: [{prefix: " + std::string( fields ) + "}]";
   };
   auto advertised = []( const char* fields ) {
      return "advertised: [{" + std::string( fields ) + "}]";
   };
   for (
      const Row& row : {
         Row{ "maxRouter: 5", "vrf: unknown key 'maxRouter'" },
         { "maxRoutes: many", "maxRoutes: expected a number at 'many'" },
         { "maxRoutes: 0", "maxRoutes: 0 is not in 1 to 16000000" },
         { "maxRouteIntfs: 16000001",
           "maxRouteIntfs: 16000001 is not in 1 to 16000000" },
         { "maxRoutes: [1]", "maxRoutes: expected a single value" },
         { "mroute-table: 0", "mroute-table: 0 is not in 1 to 999999999" },
         { "require-hello: maybe",
           "require-hello: expected true or false at 'maybe'" },
         { "access-lists: [{rules: []}]", "access-list: key 'name' is missing" },
         { "access-lists: [{name: a, rules: [{action: allow}]}]",
           "action: 'allow' is neither permit nor deny" },
         { "ssmFilter: a", "ssmFilter: no access list 'a' in this VRF" },
         { "frrFilter6: .no-ssm-range",
           "frrFilter6: no access list '.no-ssm-range' in this VRF" },
         { "access-lists: [{name: a, rules: [{action: deny, group: 239.0.0.0/8}, "
           "{action: deny, group: 'ff0e::/16'}]}]",
           "access list rule 20: IPv4 and IPv6 in one list" },
         { "access-lists: [{name: a, rules: [{action: deny, group: 10.0.0.0/8}]}]",
           "group: 10.0.0.0/8 is not within 224.0.0.0/4" },
         { "access-lists: [{name: a}, {name: a}]", "access list 'a' comes twice" },
         { "name: again", "vrf: key 'name' comes twice" },
         { "rps: 10.0.0.1", "rps: expected a list" },
         { "rps: [10.0.0.1]", "rp: expected keys and values" },
         { "rps: [{groups: []}]", "rp: key 'address' is missing" },
         { "rps: [{address: 10.0.0}]", "address: expected an address at '10.0.0'" },
         { "rps: [{address: 224.0.0.1}]", "224.0.0.1 is no unicast address" },
         { "rps: [{address: 10.0.0.1, groups: [10.0.0.0/8]}]",
           "10.0.0.0/8 is not within 224.0.0.0/4" },
         { "rps: [{address: 10.0.0.1}, {address: 10.0.0.1}]",
           "RP '10.0.0.1' comes twice" },
         { "rps: [{address: 10.0.0.1, anycast-peers: [10.0.0.2, 10.0.0.2]}]",
           "peer '10.0.0.2' comes twice" },
         { advertised( "source: 10.0.0.7, rp: 10.0.0.1" ),
           "advertised: key 'group' is missing" },
         { advertised( "source: 10.0.0.7, group: 10.0.0.8, rp: 10.0.0.1" ),
           "10.0.0.8 is no multicast address" },
         { advertised( "source: '::7', group: 239.1.2.3, rp: 10.0.0.1" ),
           "source: ::7 is of another family" },
         { advertised( "source: 10.0.0.7, group: 239.1.2.3, rp: 10.0.0.1}, "
                       "{source: 10.0.0.7, group: 239.1.2.3, rp: 10.0.0.2" ),
           "advertised (10.0.0.7, 239.1.2.3) comes twice" },
         { rpf( "10.0.0.0/33, interface: eth0" ),
           "prefix: IpGenPrefix::length > 32 not allowed" },
         { rpf( "none, interface: eth0" ), "prefix: expected address/length" },
         { rpf( "10.0.0.0/8, interface: eth0, neighbor: '::1'" ),
           "neighbor and prefix differ in family" },
         { rpf( "10.0.0.0/8, interface: eth0, preference: 256" ),
           "preference: 256 is above 255" },
         { rpf( "10.0.0.0/8, interface: eth0}, {prefix: 10.1.0.0/8, interface: "
                "eth0" ),
           "prefix '10.0.0.0/8' comes twice" },
      } ) {
      EXPECT_EQ( errorOf( vrf + "  " + row.line + "\n" ),
                 std::string( "agent.yaml:5: " ) + row.error );
   }
}

TEST( Config, FaultsOfInterfacesVrfsAndDocuments ) {
   const std::string vrf = "vrfs:\n- name: default\n  interfaces:\n";
   const std::pair<std::string, const char*> rows[] = {
      { vrf + "  - name: eth0\n  - name: eth0\n",
        "5: interface 'eth0' comes twice" },
      { vrf + "  - name: eth0\n  - name: eth1\n    capture: eth0\n",
        "6: capture 'eth0' comes twice" },
      { vrf + "  - name: " + std::string( 32, 'x' ) + "\n",
        "4: name: longer than 31 bytes" },
      { vrf + "  - name: eth0\n    addresses: [10.0.0.1]\n",
        "5: address: expected address/length at '10.0.0.1'" },
      { vrf + "  - name: eth0\n    addresses: [10.0.0.1/24,\n 10.0.0.1/8]\n",
        "6: address '10.0.0.1' comes twice" },
      { vrf + "  - name: eth0\n    addresses: [none]\n",
        "5: address: expected address/length at 'none'" },
      { vrf + "  - name: eth0\n    addresses: [10.0.0.1/24]\n  rpf-routes:\n"
              "  - {prefix: 10.1.0.0/16, interface: eth0, neighbor: 10.0.0.1}\n",
        "7: neighbor: 10.0.0.1 is an address of this router" },
      { vrf + "  - name: \"e\\0\\u009b\"\n",
        "4: name: 'e\\x00\\xc2\\x9b' has a control character" },
      { vrf + "  - {name: eth0, capture: \"\\n\"}\n",
        "4: name: '\\x0a' has a control character" },
      { "vrfs:\n- name: \"\\e[2J\"\n",
        "2: name: '\\x1b[2J' has a control character" },
      { "vrfs:\n- name: a\n  access-lists: [name: \"\\x7f\"]\n",
        "3: name: '\\x7f' has a control character" },
      { "vrfs:\n- name: a\n  access-lists: [{name: b, rules: [{action: deny, "
        "group: 0.0.0.0/0}]}]\n  ssmFilter6: b\n",
        "4: ssmFilter6: access list 'b' is of another family" },
      { "vrfs:\n- name: ../up\n", "2: '../up' cannot name a VRF" },
      { "vrfs:\n- name: all\n", "2: 'all' cannot name a VRF" },
      { "vrfs:\n- {name: red, mroute-table: 7}\n- {name: blue, mroute-table: 7}\n",
        "3: mroute-table 7 is that of VRF 'red'" },
      { "vrfs:\n- name: red\n- name: red\n", "3: VRF 'red' comes twice" },
      { "vrfs:\n- name: " + std::string( 101, 'x' ) + "\n",
        "2: name: longer than 100 bytes" },
      { vrf + "  - name: red0\n- name: blue\n  rpf-routes:\n"
              "  - {prefix: 10.1.0.0/16, interface: red0}\n",
        "7: interface 'red0' is not of this VRF" },
      { "", "1: configuration: expected keys and values" },
      { "vrfs: []\n", "1: configuration: no VRF in 'vrfs'" },
      { "vrfs:\n- name: a\n---\nvrfs: []\n", "4: a second document" } };
   for ( const auto& [text, error] : rows ) {
      EXPECT_EQ( errorOf( text ), std::string( "agent.yaml:" ) + error ) << text;
   }
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

TEST( Config, WhatIsNoYamlIsRefusedWithItsLine ) {
   EXPECT_EQ( errorOf( "vrfs:\n  - {name: [\n" ).rfind( "agent.yaml:", 0 ), 0u );
   EXPECT_EQ( errorOf( "vrfs:\n\t- name: x\n" ).rfind( "agent.yaml:2: ", 0 ), 0u );
   EXPECT_EQ( errorOf( "vrfs: *nowhere\n" ).rfind( "agent.yaml:1: ", 0 ), 0u );
   // Deep nesting and a self-containing value must end.
   EXPECT_NE( errorOf( std::string( 100000, '[' ) ), "" );
   EXPECT_NE( errorOf( "vrfs: &a [*a]\n" ), "" );
}

TEST( Config, UnreadableFilesAreNamed ) {
   for ( const std::string path : { "/nonexistent/agent.yaml", "/" } ) {
      std::string error =
         Mox::Test::errorText<ConfigError>( [&] { readConfig( path ); } );
      EXPECT_EQ( error.rfind( path + ": ", 0 ), 0u ) << error;
      EXPECT_EQ( error.find( "Success" ), std::string::npos );
   }
}

TEST( Config, WithoutOneAnInterfaceIsAssumedAndSaidSo ) {
   AgentConfig config = assumedConfig( IpGenAddr( "10.0.0.13" ) );
   EXPECT_EQ( captureBinding( config, "" ).interface, Vantu::IntfId( "eth0" ) );
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
   EXPECT_EQ( captureBinding( config, "left" ).interface, Vantu::IntfId( "eth0" ) );
   EXPECT_EQ( captureBinding( config, "eth1" ).vrf, L3::VrfName( "b" ) );
   EXPECT_EQ( captureBinding( config, "eth0" ).interface, Vantu::IntfId() );
   EXPECT_EQ( captureBinding( config, "" ).interface, Vantu::IntfId() )
      << "there are two";
}

}
}
