#include "apps/mfib/Links.h"

namespace Forwarding {

uint32_t LinkTable::index( Vantu::IntfId name ) const {
   for ( const auto& [index, known] : names_ ) {
      if ( known == name ) return index;
   }
   return 0;
}

Links::Links( Mox::Loop& loop, Mox::Loop::Function changed )
   : changed_( std::move( changed ) ),
     notifications_(
        loop, { RTNLGRP_LINK },
        [this]( const Netlink::Message& message ) {
           take( message );
           changed_();
        },
        [this] {
           reload();
           changed_();
        } ) {
   reload();
}

// A change during the dump is notified as well: the table ends up right.
void Links::reload() {
   table_.clear();
   Netlink::dump( RTM_GETLINK, AF_UNSPEC,
                  [this]( const Netlink::Message& message ) { take( message ); } );
}

void Links::take( const Netlink::Message& message ) {
   const auto* body = message.body<ifinfomsg>();
   // Bridges and multicast routing tell of links in their own families.
   if ( body == nullptr || body->ifi_index <= 0 || body->ifi_family != AF_UNSPEC )
      return;
   auto index = static_cast<uint32_t>( body->ifi_index );
   if ( message.type() == RTM_DELLINK ) return table_.linkDel( index );
   if ( message.type() != RTM_NEWLINK ) return;
   auto name = message.attributes<ifinfomsg>().text( IFLA_IFNAME );
   if ( !name || name->size() > Vantu::IntfId::maxLength ) return;
   table_.linkIs( index, Vantu::IntfId( *name ) );
}

}
