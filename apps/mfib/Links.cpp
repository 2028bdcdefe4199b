#include "apps/mfib/Links.h"

#include <net/if.h>

#include <system_error>

#include "platform/trace/Trace.h"

namespace Forwarding {

MOX_TRACE_FACILITY( linkTrace, "Pimsm::Forwarding::Links" )

uint32_t LinkTable::index( Vantu::IntfId name ) const {
   for ( const auto& [index, link] : links_ ) {
      if ( link.name == name ) return index;
   }
   return 0;
}

bool LinkTable::up( uint32_t index ) const {
   auto found = links_.find( index );
   return found != links_.end() && found->second.up;
}

Links::Links( Mox::Loop& loop, Mox::Loop::Function changed )
   : changed_( std::move( changed ) ),
     notifications_(
        loop, { RTNLGRP_LINK },
        [this]( const Netlink::Message& message ) {
           table_.take( message );
           changed_();
        },
        [this] {
           recover();
           changed_();
        } ) {
   reload();
}

// A change during the dump is notified as well: the table ends up right.
void Links::reload() {
   LinkTable table;
   Netlink::dump( RTM_GETLINK, AF_UNSPEC, [&]( const Netlink::Message& message ) {
      table.take( message );
   } );
   table_ = std::move( table );
}

// When the kernel cannot answer now, the former table stays, and forwarding goes
// on.
void Links::recover() {
   try {
      reload();
   } catch ( const std::system_error& e ) {
      MOX_TRACE( linkTrace, 0,
                 "the interfaces could not be read anew: " << e.what() );
   }
}

void LinkTable::take( const Netlink::Message& message ) {
   const auto* body = message.body<ifinfomsg>();
   // Bridges and multicast routing report links in their own families.
   if ( body == nullptr || body->ifi_index <= 0 || body->ifi_family != AF_UNSPEC )
      return;
   auto index = static_cast<uint32_t>( body->ifi_index );
   if ( message.type() == RTM_DELLINK ) return linkDel( index );
   if ( message.type() != RTM_NEWLINK ) return;
   auto name = message.attributes<ifinfomsg>().text( IFLA_IFNAME );
   if ( !name || name->size() > Vantu::IntfId::maxLength ) return;
   constexpr unsigned kUp = IFF_UP | IFF_RUNNING;
   linkIs( index, Vantu::IntfId( *name ), ( body->ifi_flags & kUp ) == kUp );
}

}
