#include "apps/agent/wire/Present.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

namespace Agent {
namespace {

using Router::InterfaceAddress;
using Router::InterfaceConfig;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr const char* kReversePathFilter = "/proc/sys/net/ipv4/conf/all/rp_filter";

// The first address is PIM's.
void putFirst( InterfaceConfig& interface, const std::set<IpGenAddr>& linkLocals ) {
   std::vector<InterfaceAddress>& addresses = interface.addresses;
   IpGenAddr primary = *linkLocals.begin();
   for ( const InterfaceAddress& each : addresses ) {
      if ( linkLocals.count( each.address ) != 0 ) primary = each.address;
   }
   std::erase_if( addresses, []( const InterfaceAddress& each ) {
      return each.address.family() == AddressFamily::ipv6 &&
             each.address.isLinkLocal();
   } );
   addresses.insert( addresses.begin(),
                     { primary, Vantu::IpGenPrefix( primary, 64 ) } );
}

bool hasIpv6( const InterfaceConfig& interface ) {
   return std::any_of( interface.addresses.begin(), interface.addresses.end(),
                       []( const InterfaceAddress& each ) {
                          return each.address.family() == AddressFamily::ipv6;
                       } );
}

}

VrfConfig presentConfig( VrfConfig config, AddressFamily family,
                         const HostLinkTable& links ) {
   for ( InterfaceConfig& interface : config.interfaces ) {
      const HostLink* link = links.find( config.capture( interface.name ) );
      interface.up = link != nullptr && link->up;
      if ( !interface.up ) continue;
      interface.mtu = link->mtu;
      if ( family == AddressFamily::ipv4 || !hasIpv6( interface ) ) continue;
      interface.up = !link->linkLocals.empty();
      if ( interface.up ) putFirst( interface, link->linkLocals );
   }
   return config;
}

std::string reversePathProblem() {
   int filter = 0;
   std::ifstream( kReversePathFilter ) >> filter;
   if ( filter == 0 ) return "";
   return fmt::format(
      "net.ipv4.conf.all.rp_filter is {}: the kernel drops what a multicast router "
      "has "
      "to see; set it to 0",
      filter );
}

}
