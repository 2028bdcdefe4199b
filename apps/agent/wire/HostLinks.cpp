#include "apps/agent/wire/HostLinks.h"

#include <linux/if_addr.h>
#include <net/if.h>

#include <algorithm>
#include <system_error>

#include "platform/trace/Trace.h"

namespace Agent {

MOX_TRACE_FACILITY( trace, "Pimsm::Agent::HostLinks" )

uint32_t HostLinkTable::index( const std::string& name ) const {
   const auto found =
      std::find_if( links_.begin(), links_.end(),
                    [&]( const auto& each ) { return each.second.name == name; } );
   return found == links_.end() ? 0 : found->first;
}

const HostLink* HostLinkTable::find( const std::string& name ) const {
   const auto found = links_.find( index( name ) );
   return found == links_.end() ? nullptr : &found->second;
}

bool HostLinkTable::take( const Netlink::Message& message ) {
   switch ( message.type() ) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
         return takeLink( message );
      case RTM_NEWADDR:
      case RTM_DELADDR:
         return takeAddress( message );
      default:
         return false;
   }
}

bool HostLinkTable::takeLink( const Netlink::Message& message ) {
   const auto* body = message.body<ifinfomsg>();
   // Bridges and multicast routing report links in their own families.
   if ( body == nullptr || body->ifi_index <= 0 || body->ifi_family != AF_UNSPEC )
      return false;
   const auto at = static_cast<uint32_t>( body->ifi_index );
   if ( message.type() == RTM_DELLINK ) return links_.erase( at ) != 0;
   const Netlink::Attributes attributes = message.attributes<ifinfomsg>();
   HostLink& link = links_[at];
   const HostLink before = link;
   if ( const auto name = attributes.text( IFLA_IFNAME ) ) link.name = *name;
   link.mtu = attributes.value<uint32_t>( IFLA_MTU ).value_or( link.mtu );
   link.up = ( body->ifi_flags & IFF_UP ) != 0;
   link.carrier = ( body->ifi_flags & IFF_RUNNING ) != 0;
   return link != before;
}

// The addresses of an interface that is not known yet come again in a dump.
bool HostLinkTable::takeAddress( const Netlink::Message& message ) {
   const auto* body = message.body<ifaddrmsg>();
   if ( body == nullptr ) return false;
   const auto family = Netlink::familyOf( body->ifa_family );
   const auto link = links_.find( body->ifa_index );
   if ( !family || link == links_.end() ) return false;
   const Netlink::Attributes attributes = message.attributes<ifaddrmsg>();
   auto address = attributes.address( IFA_LOCAL, *family );
   // Where there is no local one, it is not the other end's.
   if ( !address ) address = attributes.address( IFA_ADDRESS, *family );
   if ( !address ) return false;
   const uint32_t flags =
      attributes.value<uint32_t>( IFA_FLAGS ).value_or( body->ifa_flags );
   // Another host may have it (RFC 4862, 5.4).
   const bool doubtful = ( flags & ( IFA_F_TENTATIVE | IFA_F_DADFAILED ) ) != 0;
   std::set<Vantu::IpGenAddr>& addresses = link->second.addresses;
   if ( message.type() == RTM_DELADDR || doubtful )
      return addresses.erase( *address ) != 0;
   return addresses.insert( *address ).second;
}

HostLinks::HostLinks( Mox::Loop& loop, Mox::Loop::Function changed )
   : changed_( std::move( changed ) ),
     notifications_(
        loop, { RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR },
        [this]( const Netlink::Message& message ) {
           if ( table_.take( message ) ) changed_();
        },
        [this] { recover(); } ) {
   reload();
}

// A change during the dump is notified as well: the table ends up right.
void HostLinks::reload() {
   HostLinkTable table;
   for ( const auto& [type, family] : { std::pair( RTM_GETLINK, AF_UNSPEC ),
                                        std::pair( RTM_GETADDR, AF_UNSPEC ) } )
      Netlink::dump(
         static_cast<uint16_t>( type ), family,
         [&]( const Netlink::Message& message ) { table.take( message ); } );
   table_ = std::move( table );
}

// When the kernel cannot answer now, the former table stays.
void HostLinks::recover() {
   try {
      reload();
   } catch ( const std::system_error& e ) {
      MOX_TRACE( trace, 0, "the interfaces could not be read anew: " << e.what() );
   }
   changed_();
}

}
