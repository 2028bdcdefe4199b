#include "tests/netns/Topology.h"

#include <fmt/format.h>

namespace Netns {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

std::string address( AddressFamily family, int link, int last ) {
   return family == AddressFamily::ipv4
             ? fmt::format( "10.99.{}.{}", link, last )
             : fmt::format( "2001:db8:99:{}::{}", link, last );
}

void addAddresses( const Namespace& space, const std::string& interface, int link,
                   int last ) {
   space.ip( fmt::format( "address add {}/24 dev {}",
                          address( AddressFamily::ipv4, link, last ), interface ) );
   // Usable at once, without duplicate address detection.
   space.ip( fmt::format( "address add {}/64 dev {} nodad",
                          address( AddressFamily::ipv6, link, last ), interface ) );
}

}

Topology::Topology() {
   for ( int link = 0; link < links; ++link ) {
      connect( router, routerInterface( link ), host( link ),
               hostInterface( link ) );
      addAddresses( router, routerInterface( link ), link, 1 );
      addAddresses( host( link ), hostInterface( link ), link, 2 );
   }
}

std::string Topology::routerInterface( int link ) {
   return "r" + std::to_string( link );
}

IpGenAddr Topology::routerAddress( AddressFamily family, int link ) {
   return IpGenAddr( address( family, link, 1 ) );
}

IpGenAddr Topology::hostAddress( AddressFamily family, int link ) {
   return IpGenAddr( address( family, link, 2 ) );
}

const Namespace& Topology::host( int link ) const {
   return link == 0 ? source : link == 1 ? left : right;
}

std::string Topology::hostInterface( int link ) {
   constexpr const char* kNames[links] = { "s0", "a0", "b0" };
   return kNames[link];
}

std::string Topology::config( const std::string& more ) {
   std::string out = "vrfs:\n  - name: default\n    interfaces:\n";
   for ( int link = 0; link < links; ++link ) {
      out += fmt::format(
         "      - name: {}\n        addresses: [{}/24, \"{}/64\"]\n",
         routerInterface( link ), address( AddressFamily::ipv4, link, 1 ),
         address( AddressFamily::ipv6, link, 1 ) );
   }
   return out + more;
}

}
