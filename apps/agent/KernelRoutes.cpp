#include "apps/agent/KernelRoutes.h"

#include <algorithm>
#include <system_error>

namespace Agent {
namespace {

using Vantu::IpGenAddr;

// A gateway of the other family (RTA_VIA, RFC 8950) is no PIM neighbour of this
// one.
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

// The first next hop that is up.
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

// The content of a dump of these tables, links first.
class Reading {
 public:
   explicit Reading( const std::set<uint32_t>& tables ) : tables_( tables ) {}

   void addLink( const Netlink::Message& message ) {
      const auto* body = message.body<ifinfomsg>();
      if ( body == nullptr || message.type() != RTM_NEWLINK ) return;
      auto name = message.attributes<ifinfomsg>().text( IFLA_IFNAME );
      if ( name )
         names_[static_cast<uint32_t>( body->ifi_index )] = Vantu::IntfId( *name );
   }
   void addRoute( const Netlink::Message& message );

   KernelRibs takeRibs() { return std::move( ribs_ ); }

 private:
   const std::set<uint32_t>& tables_;
   std::map<uint32_t, Vantu::IntfId> names_;  // by index
   KernelRibs ribs_;
};

void Reading::addRoute( const Netlink::Message& message ) {
   const auto* body = message.body<rtmsg>();
   if ( body == nullptr || message.type() != RTM_NEWROUTE ) return;
   auto family = Netlink::familyOf( body->rtm_family );
   bool wanted = body->rtm_type == RTN_UNICAST || throwsAway( body->rtm_type );
   bool cached = ( body->rtm_flags & RTM_F_CLONED ) != 0;
   if ( !family || !wanted || cached || body->rtm_tos != 0 ||
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
   // Of several routes for a prefix the lowest metric counts, then the first.
   auto [kept, isNew] = ribs_[table].insert(
      Vantu::IpGenPrefix( destination, body->rtm_dst_len ), route );
   if ( !isNew && route.metric < kept.metric ) kept = route;
}

}

KernelRoutes::KernelRoutes( Mox::Loop& loop, Mox::Clock& clock,
                            std::function<void()> changed )
   : Notifiee( &clock ), loop_( loop ), changed_( std::move( changed ) ) {}

void KernelRoutes::tablesAre( std::set<uint32_t> tables ) {
   if ( std::includes( tables_.begin(), tables_.end(), tables.begin(),
                       tables.end() ) ) {
      KernelRibs left = ribs_;
      std::erase_if(
         left, [&]( const auto& rib ) { return tables.count( rib.first ) == 0; } );
      tables_ = std::move( tables );
      return ribsAre( std::move( left ) );
   }
   subscribe();
   // Tries to read a whole dump: a router's reloaded state is judged by these
   // routes.
   constexpr int kTries = 20;
   bool whole = read( tables );
   for ( int tries = 1; tries < kTries && !whole; ++tries ) whole = read( tables );
   tables_ = std::move( tables );
   if ( !whole ) touch();
}

// Subscribes before the first reading, so that no change is missed between.
void KernelRoutes::subscribe() {
   if ( notifications_ ) return;
   notifications_.emplace(
      loop_,
      std::initializer_list<int>{ RTNLGRP_LINK, RTNLGRP_IPV4_ROUTE,
                                  RTNLGRP_IPV6_ROUTE },
      [this]( const Netlink::Message& ) { touch(); }, [this] { touch(); } );
}

void KernelRoutes::touch() {
   double due = std::max( clock()->now(), nextRead_ );
   if ( wakeupTime() > due ) wakeupTimeIs( due );
}

void KernelRoutes::onTime() {
   if ( tables_.empty() ) return;
   try {
      if ( !read( tables_ ) ) touch();
   } catch ( const std::system_error& ) {
      // The routes stay as they were.
      touch();
   }
}

// Returns false when something changed meanwhile; the routes stay as they were.
bool KernelRoutes::read( const std::set<uint32_t>& tables ) {
   constexpr double kLongest = 1.0;  // s
   const double began = clock()->now();
   nextRead_ = began + kLongest;  // should it fail
   Reading reading( tables );
   bool whole = Netlink::dump(
      RTM_GETLINK, AF_UNSPEC,
      [&]( const Netlink::Message& message ) { reading.addLink( message ); } );
   for ( int family : { AF_INET, AF_INET6 } ) {
      bool all = Netlink::dump(
         RTM_GETROUTE, family,
         [&]( const Netlink::Message& message ) { reading.addRoute( message ); } );
      whole = whole && all;
   }
   const double now = clock()->now();
   nextRead_ = now + std::min( kLongest, 20 * ( now - began ) );
   if ( whole ) ribsAre( reading.takeRibs() );
   return whole;
}

void KernelRoutes::ribsAre( KernelRibs ribs ) {
   if ( ribs == ribs_ ) return;
   ribs_ = std::move( ribs );
   changed_();
}

std::optional<KernelRib::Match> KernelRoutes::find(
   uint32_t table, const IpGenAddr& address ) const {
   auto rib = ribs_.find( table );
   if ( rib == ribs_.end() ) return std::nullopt;
   return rib->second.find( address );
}

}
