#include "engine/Protocol.h"

#include <algorithm>

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

IpGenAddr allPimRouters( Vantu::AddressFamily family ) {
   static const IpGenAddr v4( "224.0.0.13" );
   static const IpGenAddr v6( "ff02::d" );
   return family == Vantu::AddressFamily::ipv4 ? v4 : v6;
}

bool contains( const std::vector<IpGenAddr>& addresses, const IpGenAddr& address ) {
   return std::find( addresses.begin(), addresses.end(), address ) !=
          addresses.end();
}

}

Protocol::Protocol( Vantu::AddressFamily family, const VrfConfig& config,
                    const Mox::Ptr<Routing::Pim::SparseMode::Status>& model,
                    Mox::Ptr<Routing::Pim::Status> pimStatus,
                    Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers,
                    Mox::Clock& clock, RouterCounters& counters,
                    HostRoutes hostRoutes, std::function<void()> linksChanged,
                    Changed changed )
   : family_( family ),
     config_( config ),
     pimStatus_( std::move( pimStatus ) ),
     clock_( clock ),
     counters_( counters ),
     linksChanged_( std::move( linksChanged ) ),
     topology_( config, std::move( hostRoutes ) ),
     policy_( family, config ),
     routes_( model, clock, topology_, &policy_,
              [this, changed]( const Routing::Pim::RouteIntfKey& key,
                               const Routes::Change& change ) {
                 if ( change.states ) forwarding_.handleRecord( key.routeKey );
                 changed( key.routeKey, key.intfId, change.timers );
              } ),
     joinPrune_( routes_, clock, topology_, &policy_, counters ),
     membership_( routes_, clock, &policy_, counters ),
     asserts_( routes_, clock, counters ),
     sources_( routes_, clock, topology_, counters ),
     forwarding_( model, { [this]( const auto& key ) { asserts_.review( key ); },
                           [changed]( const auto& key, IntfId intfId ) {
                              changed( key, intfId, false );
                           } } ),
     registering_( std::move( registers ), clock, topology_, config, counters ) {
   updateLinks();
}

void Protocol::updateLinks() {
   std::set<IntfId> gone;
   for ( const auto& [intfId, link] : links_ ) gone.insert( intfId );
   for ( const InterfaceConfig& interface : config_.interfaces ) {
      updateLink( interface );
      auto link = links_.find( interface.name );
      if ( link != links_.end() && !link->second.own.empty() )
         gone.erase( interface.name );
   }
   for ( IntfId intfId : gone ) removeLink( intfId );
}

// PIM uses the first address of the family. An interface without one gets no link;
// an existing link loses its addresses.
void Protocol::updateLink( const InterfaceConfig& interface ) {
   std::vector<IpGenAddr> own;
   Routing::Pim::IntfAddr primary;
   for ( const InterfaceAddress& each : interface.addresses ) {
      if ( each.address.family() != family_ ) continue;
      if ( own.empty() )
         primary = { each.address, static_cast<uint8_t>( each.subnet.length() ) };
      own.push_back( each.address );
   }
   auto found = links_.find( interface.name );
   if ( own.empty() ) {
      if ( found != links_.end() ) found->second.own.clear();
      return;
   }
   pimStatus_->intfIs( interface.name )->addrIs( primary );
   Link& link = links_[interface.name];
   link.own = own;
   if ( link.neighbors != nullptr )
      return link.neighbors->ownIs( own.front(), interface.drPriority );
   const IntfId name = interface.name;
   link.neighbors = std::make_unique<Neighbors>(
      clock_, own.front(), interface.drPriority,
      NeighborsObserver{ [this, name] { updateDr( name ); },
                         [this, name]( const IpGenAddr& address ) {
                            asserts_.handleNeighborLost( name, address );
                         } } );
   updateDr( name );
}

void Protocol::removeLink( IntfId intfId ) {
   links_.erase( intfId );
   endStates( intfId );
   pimStatus_->intfDel( intfId );
}

void Protocol::endStates( IntfId intfId ) {
   joinPrune_.handleIntfGone( intfId );
   membership_.handleIntfGone( intfId );
   asserts_.handleIntfGone( intfId );
}

void Protocol::updateDr( IntfId intfId ) {
   pimStatus_->intfIs( intfId )->iAmDrIs( links_.at( intfId ).neighbors->iAmDr() );
   linksChanged_();
}

void Protocol::adoptNeighbor( IntfId intfId, const IpGenAddr& address,
                              const PimHello& hello, std::optional<double> until ) {
   auto link = links_.find( intfId );
   if ( link == links_.end() || contains( link->second.own, address ) ) return;
   link->second.neighbors->adopt( address, hello, until );
}

void Protocol::adopt( const KeptTimers& kept ) {
   adopted_ = true;
   routes_.adopt();
   joinPrune_.adopt( kept );
   membership_.adopt();
   asserts_.adopt( kept );
   sources_.adopt();
   for ( IntfId intfId : routes_.intfs() ) {
      if ( links_.count( intfId ) == 0 ) endStates( intfId );
   }
   registering_.adopt();
}

Published::Downstream Protocol::timers(
   const Routing::Pim::RouteIntfKey& key ) const {
   Published::Downstream record{ key };
   joinPrune_.tell( record );
   asserts_.tell( record );
   return record;
}

void Protocol::configChanged() {
   policy_.configIs( config_ );
   topology_.configIs( config_ );
   updateLinks();
   if ( !adopted_ ) return;
   joinPrune_.endSourceSpecific();
   membership_.endSourceSpecific();
   pathsChanged();
}

void Protocol::pathsChanged() {
   if ( !adopted_ ) return;
   routes_.updatePaths();
   sources_.updatePaths();
   registering_.updateConfig();
}

void Protocol::receiveData( const Routing::Pim::RouteKey& key, IntfId intfId,
                            double age, bool wrong ) {
   sources_.receiveData( key, intfId, age );
   if ( wrong ) asserts_.handleData( key, intfId );
}

void Protocol::receive( IntfId intfId, const IpPacket& packet,
                        const Message& message ) {
   auto found = links_.find( intfId );
   if ( found == links_.end() ) return counters_.refused( noAddress );
   const Link& link = found->second;
   if ( const auto* pim = std::get_if<PimMessage>( &message ) )
      return receivePim( intfId, link, packet, *pim );
   if ( contains( link.own, packet.source ) ) return counters_.refused( ownPacket );
   membership_.receive( intfId, std::get<MembershipMessage>( message ) );
}

void Protocol::receivePim( IntfId intfId, const Link& link, const IpPacket& packet,
                           const PimMessage& message ) {
   // Registers and stops are unicast; this router's own registers count, too.
   if ( const auto* got = std::get_if<PimRegister>( &message.body ) )
      return registering_.receive( packet, *got );
   if ( const auto* got = std::get_if<PimRegisterStop>( &message.body ) )
      return registering_.receive( packet, *got );
   if ( contains( link.own, packet.source ) ) return counters_.refused( ownPacket );
   if ( std::holds_alternative<std::monostate>( message.body ) )
      return counters_.refused( otherType );
   if ( packet.destination != allPimRouters( family_ ) )
      return counters_.refused( notToAllRouters );
   if ( !counters_.accepted( refusalOfSource( packet.source ) ) ) return;
   if ( const auto* hello = std::get_if<PimHello>( &message.body ) ) {
      if ( !link.neighbors->receiveHello( packet.source, *hello ) )
         counters_.refused( tooManyNeighbors );
      return;
   }
   receiveOfNeighbor( intfId, link, packet, message );
}

void Protocol::receiveOfNeighbor( IntfId intfId, const Link& link,
                                  const IpPacket& packet,
                                  const PimMessage& message ) {
   if ( config_.requireHello && !link.neighbors->has( packet.source ) )
      return counters_.refused( unknownNeighbor );
   if ( const auto* got = std::get_if<PimAssert>( &message.body ) )
      return asserts_.receive( intfId, packet.source, *got );
   receiveJoinPrune( intfId, link, std::get<PimJoinPrune>( message.body ) );
}

void Protocol::receiveJoinPrune( IntfId intfId, const Link& link,
                                 const PimJoinPrune& message ) {
   if ( !contains( link.own, message.upstreamNeighbor ) )
      return counters_.refused( otherUpstream );
   asserts_.receive( intfId, message );
   joinPrune_.receive( intfId, *link.neighbors, message );
}

}
