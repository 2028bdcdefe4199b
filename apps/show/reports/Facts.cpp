#include "apps/show/reports/Facts.h"

namespace Show {

using Routing::Pim::RouteIntfKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// The source is none of the index's.
RouteIntfKey placeOf( const IpGenAddr& group, IntfId intfId ) {
   return { { IpGenAddr(), group }, intfId };
}

template <class ByGroup, class Table, class GroupOf>
const typename ByGroup::mapped_type& groupIn( std::optional<ByGroup>& index,
                                              const Table& table,
                                              const IpGenAddr& group,
                                              GroupOf groupOf ) {
   if ( !index ) {
      index.emplace();
      table.visit( [&]( const auto& record ) {
         ( *index )[groupOf( record )].push_back( record );
         return true;
      } );
   }
   static const typename ByGroup::mapped_type none;
   const auto found = index->find( group );
   return found == index->end() ? none : found->second;
}

}

Facts::Facts( const Mirror& mirror, const Evidence& evidence )
   : mirror_( mirror ),
     evidence_( evidence ),
     rps_( mirror ),
     counterInterval_( Show::counterInterval( mirror ) ),
     here_( isOf( evidence.host, mirror ) && mirror.writerAlive() ) {
   mirror.agent->interface().visit( [this]( const auto& intf ) {
      speaks_ = intf.speaks;
      return !speaks_;
   } );
   mirror.agent->neighborAddress().visit( [this]( const auto& record ) {
      const auto& key = record.key;
      secondary_.emplace( std::pair( key.intfId, key.address ), key.neighbor );
      return true;
   } );
   if ( here_ && evidence.host.entries )
      kernel_.emplace( mirror, *evidence.host.entries );
}

const Host::Link* Facts::link( IntfId intfId ) const {
   if ( !knowsLinks() ) return nullptr;
   const auto found = evidence_.host.links->find( std::string( intfId.name() ) );
   return found == evidence_.host.links->end() ? nullptr : &found->second;
}

bool Facts::neighbor( IntfId intfId, const IpGenAddr& address,
                      Published::Neighbor& out ) const {
   const auto& neighbors = mirror_.agent->neighbor();
   if ( neighbors.find( { intfId, address, 0 }, out ) == Brane::lookupFound )
      return true;
   const auto found = secondary_.find( { intfId, address } );
   return found != secondary_.end() &&
          neighbors.find( { intfId, found->second, 0 }, out ) == Brane::lookupFound;
}

Facts::Events Facts::eventsOf() const {
   Events out;
   const std::string vrf = mirror_.vrf();
   const uint32_t version = mirror_.family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   for ( const Logged& each : evidence_.log ) {
      const auto& event = each.event;
      if ( event.ipVersion != version || event.vrf.text() != vrf ) continue;
      out[placeOf( event.group, event.intf )].push_back( &each );
      if ( !event.intf.empty() ) out[placeOf( event.group, {} )].push_back( &each );
   }
   return out;
}

const Logged* Facts::newest(
   const IpGenAddr& group, IntfId intfId,
   const std::function<bool( const Published::Event& )>& wanted ) const {
   if ( !events_ ) events_ = eventsOf();
   const auto place = events_->find( placeOf( group, intfId ) );
   if ( place == events_->end() ) return nullptr;
   const Logged* found = nullptr;
   for ( const Logged* each : place->second )
      if ( ( found == nullptr || each->last >= found->last ) &&
           wanted( each->event ) )
         found = each;
   return found;
}

const std::vector<Published::MfibCache>& Facts::counters(
   const IpGenAddr& group ) const {
   return groupIn( counters_, mirror_.mfib->cache(), group,
                   []( const auto& record ) { return record.key.group; } );
}

const std::vector<Published::MfibUpcall>& Facts::upcalls(
   const IpGenAddr& group ) const {
   return groupIn( upcalls_, mirror_.mfib->upcall(), group,
                   []( const auto& record ) { return record.key.routeKey.group; } );
}

}
