// The configuration of a router that sends, by the interfaces of its host.
#include "apps/agent/wire/Present.h"

#include <gtest/gtest.h>

#include "apps/config/ConfigReader.h"

namespace Agent {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// "up 1400: fe80::1/64 2001:db8::1/64", the addresses as the engines get them.
std::string shown( const InterfaceConfig& interface ) {
   std::string out =
      ( interface.up ? "up " : "down " ) + std::to_string( interface.mtu ) + ":";
   for ( const auto& each : interface.addresses )
      out += " " + Vantu::valueToStrep( each.address ) + "/" +
             std::to_string( each.subnet.length() );
   return out;
}

TEST( Present, AnInterfaceIsAsTheHostHasIt ) {
   VrfConfig vrf = parseConfig(
                      "vrfs:\n- name: default\n  interfaces:\n"
                      "  - {name: eth0, capture: lan, addresses: [192.0.2.1/24, "
                      "\"2001:db8::1/64\", \"fe80::5/64\"]}\n"
                      "",
                      "test" )
                      .vrfs.at( 0 );
   HostLinkTable links;
   auto now = [&]( AddressFamily family ) {
      return shown( presentConfig( vrf, family, links ).interfaces[0] );
   };
   constexpr auto ipv4 = AddressFamily::ipv4, ipv6 = AddressFamily::ipv6;
   const std::string given = "192.0.2.1/24 2001:db8::1/64 fe80::5/64";
   EXPECT_EQ( now( ipv4 ), "down 1500: " + given ) << "missing";
   links.link( 7 ) = { "eth0", 1400, true };
   EXPECT_EQ( now( ipv4 ), "down 1500: " + given ) << "the host calls it lan";
   links.link( 7 ) = { "lan", 1400, false };
   EXPECT_EQ( now( ipv4 ), "down 1500: " + given );
   links.link( 7 ).up = true;
   EXPECT_EQ( now( ipv4 ), "down 1400: " + given ) << "without its address";
   auto& addresses = links.link( 7 ).addresses;
   addresses = { IpGenAddr( "192.0.2.1" ), IpGenAddr( "2001:db8::1" ) };
   EXPECT_EQ( now( ipv4 ), "up 1400: " + given );
   EXPECT_EQ( now( ipv6 ), "down 1400: " + given ) << "no link-local address";
   addresses.insert( { IpGenAddr( "fe80::9" ), IpGenAddr( "fe80::7" ) } );
   EXPECT_EQ( now( ipv6 ), "up 1400: fe80::7/64 192.0.2.1/24 2001:db8::1/64" );
   addresses.insert( { IpGenAddr( "fe80::5" ), IpGenAddr( "fe80::1" ) } );
   EXPECT_EQ( now( ipv6 ), "up 1400: fe80::5/64 192.0.2.1/24 2001:db8::1/64" )
      << "the configured one";
   EXPECT_EQ( now( ipv4 ), "up 1400: " + given );
}

}
}
