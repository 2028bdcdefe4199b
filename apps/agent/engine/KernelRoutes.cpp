#include "apps/agent/engine/KernelRoutes.h"

#include <algorithm>
#include <system_error>

namespace Agent {
namespace {

using Vantu::IpGenAddr;

// What stands in front of an address of the other family (RTA_VIA, RFC 8950) leads to no
// PIM neighbour of this one.
KernelRoute hopOf( const Netlink::Attributes& attributes, uint32_t index,
                   Vantu::AddressFamily family,
                   const std::map<uint32_t, Vantu::IntfId>& names ) {
   KernelRoute route;
   auto name = names.find( index );
   if ( name == names.end() || attributes.find( RTA_VIA ) ) return route;
   route.interface = name->second;
   route.neighbor = attributes.address( RTA_GATEWAY, family )
                       .value_or( IpGenAddr::unspecified( family ) );
   return route;
}

// The first of several ways that is up.
KernelRoute firstHop( std::span<const uint8_t> hops, Vantu::AddressFamily family,
                      const std::map<uint32_t, Vantu::IntfId>& names ) {
   while ( auto hop = Netlink::valueOf<rtnexthop>( hops ) ) {
      if ( hop->rtnh_len < sizeof( rtnexthop ) || hop->rtnh_len > hops.size() )
         break;
      bool down = ( hop->rtnh_flags & ( RTNH_F_DEAD | RTNH_F_LINKDOWN ) ) != 0;
      if ( !down ) {
         auto rest = hops.first( hop->rtnh_len ).subspan( sizeof( rtnexthop ) );
         return hopOf( Netlink::Attributes( rest ),
                       static_cast<uint32_t>( hop->rtnh_ifindex ), family, names );
      }
      hops = hops.subspan(
         std::min<size_t>( RTNH_ALIGN( hop->rtnh_len ), hops.size() ) );
   }
   return {};
}

bool throwsAway( uint8_t type ) {
   return type == RTN_BLACKHOLE || type == RTN_UNREACHABLE || type == RTN_PROHIBIT;
}

}

void KernelRib::add( const Vantu::IpGenPrefix& prefix, const KernelRoute& route ) {
   auto [entry, isNew] =
      lengths_[prefix.length()].emplace( prefix.address(), route );
   if ( !isNew && route.metric < entry->second.metric ) entry->second = route;
}

std::optional<KernelRib::Match> KernelRib::find( const IpGenAddr& address ) const {
   for ( const auto& [length, routes] : lengths_ ) {
      auto found = routes.find( Vantu::IpGenPrefix( address, length ).address() );
      if ( found != routes.end() ) return Match{ length, found->second };
   }
   return std::nullopt;
}

KernelRoutes::KernelRoutes( Mox::Loop& loop, Mox::Clock& clock,
                            std::function<void()> changed )
   : Notifiee( &clock ), loop_( loop ), changed_( std::move( changed ) ) {}

void KernelRoutes::tablesAre( std::set<uint32_t> tables ) {
   if ( tables_ == tables ) return;
   tables_ = std::move( tables );
   // Told of changes first, so that none is missed between.
   if ( !notifications_ ) {
      notifications_.emplace(
         loop_,
         std::initializer_list<int>{ RTNLGRP_LINK, RTNLGRP_IPV4_ROUTE,
                                     RTNLGRP_IPV6_ROUTE },
         [this]( const Netlink::Message& ) { touch(); }, [this] { touch(); } );
   }
   // Whole, if it can be had: a router's reloaded state is judged by these routes.
   constexpr int kTries = 20;
   bool whole = read();
   for ( int tries = 1; tries < kTries && !whole; ++tries ) whole = read();
   if ( !whole ) touch();
   changed_();
}

void KernelRoutes::touch() {
   double due = std::max( clock()->now(), lastRead_ + rereadInterval );
   if ( wakeupTime() > due ) wakeupTimeIs( due );
}

void KernelRoutes::onTime() {
   const Ribs before = ribs_;
   try {
      if ( !read() ) return touch();
   } catch ( const std::system_error& ) {
      // The routes stay as they were.
      return touch();
   }
   if ( before != ribs_ ) changed_();
}

// False: something changed meanwhile.
bool KernelRoutes::read() {
   lastRead_ = clock()->now();
   std::map<uint32_t, Vantu::IntfId> names;
   bool whole = Netlink::dump(
      RTM_GETLINK, AF_UNSPEC, [&]( const Netlink::Message& message ) {
         const auto* body = message.body<ifinfomsg>();
         if ( body == nullptr || message.type() != RTM_NEWLINK ) return;
         auto name = message.attributes<ifinfomsg>().text( IFLA_IFNAME );
         if ( name )
            names[static_cast<uint32_t>( body->ifi_index )] =
               Vantu::IntfId( *name );
      } );
   names_ = std::move( names );
   Ribs ribs;
   for ( int family : { AF_INET, AF_INET6 } ) {
      bool all = Netlink::dump(
         RTM_GETROUTE, family,
         [&]( const Netlink::Message& message ) { add( ribs, message ); } );
      whole = whole && all;
   }
   if ( whole ) ribs_ = std::move( ribs );
   return whole;
}

void KernelRoutes::add( Ribs& ribs, const Netlink::Message& message ) const {
   const auto* body = message.body<rtmsg>();
   if ( body == nullptr || message.type() != RTM_NEWROUTE ) return;
   auto family = Netlink::familyOf( body->rtm_family );
   bool kept = body->rtm_type == RTN_UNICAST || throwsAway( body->rtm_type );
   bool cached = ( body->rtm_flags & RTM_F_CLONED ) != 0;
   if ( !family || !kept || cached || body->rtm_tos != 0 ||
        body->rtm_dst_len > Vantu::addressBits( *family ) )
      return;
   const Netlink::Attributes attributes = message.attributes<rtmsg>();
   uint32_t table =
      attributes.value<uint32_t>( RTA_TABLE ).value_or( body->rtm_table );
   if ( tables_.count( table ) == 0 ) return;
   KernelRoute route;
   if ( auto hops = attributes.find( RTA_MULTIPATH ) ) {
      route = firstHop( *hops, *family, names_ );
   } else if ( auto index = attributes.value<uint32_t>( RTA_OIF ) ) {
      route = hopOf( attributes, *index, *family, names_ );
   }
   if ( throwsAway( body->rtm_type ) ) route.interface = {};
   route.connected = body->rtm_protocol == RTPROT_KERNEL;
   route.metric = attributes.value<uint32_t>( RTA_PRIORITY ).value_or( 0 );
   IpGenAddr destination = attributes.address( RTA_DST, *family )
                              .value_or( IpGenAddr::unspecified( *family ) );
   ribs[{ table, *family }].add(
      Vantu::IpGenPrefix( destination, body->rtm_dst_len ), route );
}

std::optional<KernelRib::Match> KernelRoutes::find(
   uint32_t table, const IpGenAddr& address ) const {
   auto rib = ribs_.find( { table, address.family() } );
   if ( rib == ribs_.end() ) return std::nullopt;
   return rib->second.find( address );
}

}
