#include "apps/mirror/Host.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <system_error>

#include "apps/netlink/Dump.h"
#include "apps/netlink/Multicast.h"

namespace Show {

namespace {

Vantu::IpGenAddr addressOf( const sockaddr* address ) {
   char text[INET6_ADDRSTRLEN] = {};
   const void* bytes = nullptr;
   if ( address->sa_family == AF_INET )
      bytes = &reinterpret_cast<const sockaddr_in*>( address )->sin_addr;
   if ( address->sa_family == AF_INET6 )
      bytes = &reinterpret_cast<const sockaddr_in6*>( address )->sin6_addr;
   if ( bytes == nullptr ||
        inet_ntop( address->sa_family, bytes, text, sizeof text ) == nullptr )
      return {};
   return Vantu::IpGenAddr( text );
}

std::optional<std::map<std::string, Host::Link>> linksHere(
   std::set<Vantu::IpGenAddr>& addresses ) {
   ifaddrs* list = nullptr;
   if ( getifaddrs( &list ) != 0 ) return std::nullopt;
   const std::unique_ptr<ifaddrs, decltype( &freeifaddrs )> owner( list,
                                                                   freeifaddrs );
   std::map<std::string, Host::Link> links;
   for ( const ifaddrs* each = list; each != nullptr; each = each->ifa_next ) {
      Host::Link& link = links[each->ifa_name];
      link.up = ( each->ifa_flags & IFF_UP ) != 0 &&
                ( each->ifa_flags & IFF_RUNNING ) != 0;
      if ( each->ifa_addr == nullptr ) continue;
      addresses.insert( addressOf( each->ifa_addr ) );
      link.ipv4 = link.ipv4 || each->ifa_addr->sa_family == AF_INET;
      if ( each->ifa_addr->sa_family != AF_INET6 ) continue;
      link.ipv6 = true;
      const auto* address = reinterpret_cast<const sockaddr_in6*>( each->ifa_addr );
      link.linkLocal =
         link.linkLocal || IN6_IS_ADDR_LINKLOCAL( &address->sin6_addr );
   }
   return links;
}

void readEntries( Vantu::AddressFamily family, Host::Entries& entries ) {
   const int system =
      family == Vantu::AddressFamily::ipv4 ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR;
   Netlink::dump( RTM_GETROUTE, system, [&]( const Netlink::Message& message ) {
      const auto read = Netlink::multicastEntry( message, family );
      if ( !read ) return;
      const auto& outgoing = read->outgoingIndexes;
      entries.insert( { { read->source, read->group },
                        { read->table,
                          read->incomingIndex,
                          { outgoing.begin(), outgoing.end() } } } );
   } );
}

}

// Link-local addresses repeat everywhere.
bool isOf( const Host& host, const Mirror& mirror ) {
   bool found = false;
   mirror.agent->ownAddress().visit( [&]( const Published::OwnAddress& own ) {
      found = !own.key.address.isLinkLocal() &&
              host.addresses.count( own.key.address ) != 0;
      return !found;
   } );
   return found;
}

Host thisHost() {
   Host host;
   host.links = linksHere( host.addresses );
   try {
      Host::Entries entries;
      readEntries( Vantu::AddressFamily::ipv4, entries );
      readEntries( Vantu::AddressFamily::ipv6, entries );
      host.entries = std::move( entries );
   } catch ( const std::system_error& ) {
      // A kernel without multicast routing.
   }
   return host;
}

}
