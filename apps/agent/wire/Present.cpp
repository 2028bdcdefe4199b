#include "apps/agent/wire/Present.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>

namespace Agent {
namespace {

using Router::InterfaceAddress;
using Router::InterfaceConfig;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr const char* kReversePathFilter = "/proc/sys/net/ipv4/conf/all/rp_filter";

// The link-local one that is configured if the host has it, else the lowest; nothing
// without any.
std::optional<IpGenAddr> linkLocalOf( const InterfaceConfig& interface,
                                      const HostLink& link ) {
   std::optional<IpGenAddr> lowest;
   for ( const IpGenAddr& each : link.addresses ) {
      if ( each.family() != AddressFamily::ipv6 || !each.isLinkLocal() ) continue;
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address == each ) return each;
      }
      if ( !lowest ) lowest = each;
   }
   return lowest;
}

// The first address is PIM's. Returns false if there is none that it can use.
bool putFirst6( InterfaceConfig& interface, const HostLink& link ) {
   const std::optional<IpGenAddr> primary = linkLocalOf( interface, link );
   if ( !primary ) return false;
   std::erase_if( interface.addresses, []( const InterfaceAddress& each ) {
      return each.address.family() == AddressFamily::ipv6 &&
             each.address.isLinkLocal();
   } );
   interface.addresses.insert( interface.addresses.begin(),
                               { *primary, Vantu::IpGenPrefix( *primary, 64 ) } );
   return true;
}

}

VrfConfig presentConfig( VrfConfig config, AddressFamily family,
                         const HostLinkTable& links ) {
   for ( InterfaceConfig& interface : config.interfaces ) {
      const HostLink* link = links.find( config.capture( interface.name ) );
      const auto first = std::find_if(
         interface.addresses.begin(), interface.addresses.end(),
         [&]( const auto& own ) { return own.address.family() == family; } );
      interface.observed = true;
      interface.up = link != nullptr && link->up;
      if ( !interface.up || first == interface.addresses.end() ) continue;
      interface.mtu = link->mtu;
      interface.carrier = link->carrier;
      interface.index = links.index( config.capture( interface.name ) );
      interface.up = family == AddressFamily::ipv4
                        ? link->addresses.count( first->address ) != 0
                        : putFirst6( interface, *link );
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
