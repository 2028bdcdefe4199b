#include "engine/RegisterEngine.h"

namespace Router {

using Routing::Pim::SparseMode::InternalRouteKey;
using Vantu::IpGenAddr;

// The causes that keep a source in the tables, each with its timer.
struct RegisterEngine::Source {
   Source( Mox::Clock& clock, const std::function<void()>& ended )
      : registered( clock, ended ),
        fromRouter( clock, ended ),
        fromPeer( clock, ended ),
        stopped( clock, ended ) {}

   bool known() const {
      return registered.running() || fromRouter.running() || fromPeer.running();
   }
   // Is the register interface in the source's olist?
   bool registers( bool hasPeers ) const {
      return ( registered.running() && !stopped.running() ) ||
             ( fromRouter.running() && hasPeers );
   }

   Timer registered;  // by this router as its first hop
   Timer fromRouter;
   Timer fromPeer;
   Timer stopped;
};

RegisterEngine::RegisterEngine(
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables, Mox::Clock& clock,
   const Topology& topology, const VrfConfig& config, bool rpOnly,
   Journal& journal )
   : tables_( std::move( tables ) ),
     clock_( clock ),
     topology_( topology ),
     config_( config ),
     rpOnly_( rpOnly ),
     journal_( journal ) {}

RegisterEngine::~RegisterEngine() = default;

bool RegisterEngine::isRpOf( const IpGenAddr& group ) const {
   return isOwn( config_, topology_.rpOf( group ) );
}

bool RegisterEngine::accept( const IpGenAddr& group, const IpGenAddr& source ) {
   return journal_.accepted( refusalOfRoute( source, group ), { source, group } );
}

bool RegisterEngine::receive( const IpPacket& packet, const PimRegister& message ) {
   auto refused = [&]( Refusal reason ) {
      journal_.refused( reason, { message.source, message.group } );
      return false;
   };
   if ( !accept( message.group, message.source ) ) return false;
   RouteKey key{ message.source, message.group };
   if ( isOwn( config_, packet.source ) ) {
      if ( rpOnly_ ) return refused( ownPacket );
      receiveSent( key, message.nullRegister );
      return false;
   }
   if ( !isOwn( config_, packet.destination ) ) return refused( notToUs );
   const IpGenAddr rp = topology_.rpOf( message.group );
   const AnycastRpConfig* set = anycastRp( config_, rp );
   const bool byPeer = set != nullptr && set->has( packet.source );
   const bool toRp =
      packet.destination == rp || ( byPeer && packet.destination == set->local );
   if ( !isOwn( config_, rp ) || !toRp ) return refused( notTheRp );
   Source& known = source( key );
   if ( !known.known() ) journal_.tell( Published::registerCame, key );
   ( byPeer ? known.fromPeer : known.fromRouter )
      .start( config_.rpKeepalivePeriod() );
   update( key );
   return true;
}

// An RP also passes registers on to its peers. This router is the first hop only of
// a source on its own links.
void RegisterEngine::receiveSent( const RouteKey& key, bool nullRegister ) {
   if ( !topology_.pathTo( key.source ).attached )
      return journal_.refused( ownPacket );
   Source& sent = source( key );
   sent.registered.start( config_.keepalivePeriod );
   if ( !nullRegister ) sent.stopped.cancel();
   update( key );
}

void RegisterEngine::receive( const IpPacket& packet,
                              const PimRegisterStop& message ) {
   if ( isOwn( config_, packet.source ) ) return journal_.refused( ownPacket );
   if ( !isOwn( config_, packet.destination ) ) return journal_.refused( notToUs );
   bool anySource = message.source.isUnspecified();
   // A stop for every source has no source to check.
   if ( !accept( message.group, anySource ? packet.source : message.source ) )
      return;
   if ( message.maskLength != hostMask( message.group ) )
      return journal_.refused( partialMask, { message.source, message.group } );
   IpGenAddr rp = topology_.rpOf( message.group );
   if ( !rp.isUnspecified() && rp != packet.source )
      return journal_.refused( rpMismatch, { message.source, message.group } );
   if ( !anySource ) return receiveStop( { message.source, message.group } );
   std::vector<RouteKey> keys;
   for ( const auto& [key, each] : sources_ ) {
      if ( key.group == message.group && each->registered.running() )
         keys.push_back( key );
   }
   for ( const RouteKey& key : keys ) receiveStop( key );
}

void RegisterEngine::receiveStop( const RouteKey& key ) {
   if ( !topology_.pathTo( key.source ).attached )
      return journal_.refused( notRegistered, key );
   Source& stopped = source( key );
   if ( !stopped.registered.running() )
      stopped.registered.start( config_.keepalivePeriod );
   stopped.stopped.start( config_.registerSuppressionTime );
   update( key );
}

RegisterEngine::Source& RegisterEngine::source( const RouteKey& key ) {
   std::unique_ptr<Source>& found = sources_[key];
   if ( found == nullptr )
      found = std::make_unique<Source>( clock_, [this, key] { update( key ); } );
   return *found;
}

// A table without room keeps its records, and the source is tried again at its next
// register. A source in no table is forgotten.
void RegisterEngine::update( const RouteKey& key ) {
   auto found = sources_.find( key );
   if ( found == sources_.end() ) return;
   if ( !found->second->known() ) {
      sources_.erase( found );
      return remove( key );
   }
   if ( tryPublish( key, *found->second ) ) return;
   journal_.refused( tableFull, key );
   if ( !stands( key ) ) sources_.erase( found );
}

bool RegisterEngine::tryPublish( const RouteKey& key, const Source& source ) {
   try {
      publish( key, source );
      return true;
   } catch ( const ::Brane::NoRoomError& ) {
      return false;
   }
}

bool RegisterEngine::stands( const RouteKey& key ) const {
   return tables_->registerOif().has( key ) ||
          tables_->noRegisterOif().has( key ) ||
          tables_->drDiscoveredSg().has( key ) ||
          tables_->anycastDiscoveredSg().has( key );
}

// Additions come before removals.
void RegisterEngine::publish( const RouteKey& key, const Source& source ) {
   const InternalRouteKey value( key );
   const IpGenAddr rp = topology_.rpOf( key.group );
   const AnycastRpConfig* set = anycastRp( config_, rp );
   bool registers = source.registers( isOwn( config_, rp ) && set != nullptr &&
                                      !set->peers.empty() );
   bool sent = source.registered.running(), peer = source.fromPeer.running();
   auto& tables = *tables_;
   if ( registers && !tables.registerOif().has( key ) )
      tables.registerOifIs( value );
   if ( !registers && !tables.noRegisterOif().has( key ) )
      tables.noRegisterOifIs( value );
   if ( sent && !tables.drDiscoveredSg().has( key ) )
      tables.drDiscoveredSgIs( value );
   if ( peer && !tables.anycastDiscoveredSg().has( key ) )
      tables.anycastDiscoveredSgIs( value );
   if ( !registers ) tables.registerOifDel( key );
   if ( registers ) tables.noRegisterOifDel( key );
   if ( !sent ) tables.drDiscoveredSgDel( key );
   if ( !peer ) tables.anycastDiscoveredSgDel( key );
}

void RegisterEngine::remove( const RouteKey& key ) {
   tables_->registerOifDel( key );
   tables_->noRegisterOifDel( key );
   tables_->drDiscoveredSgDel( key );
   tables_->anycastDiscoveredSgDel( key );
}

// The tables that hold a source show what caused it.
void RegisterEngine::adopt() {
   if ( rpOnly_ ) return adoptRegistered();
   for ( const RouteKey& key : tables_->drDiscoveredSg().keys() ) {
      Source& sent = source( key );
      sent.registered.start( config_.keepalivePeriod );
      if ( tables_->noRegisterOif().has( key ) )
         sent.stopped.start( config_.registerSuppressionTime );
   }
   adoptRegistered();
}

// As the RP.
void RegisterEngine::adoptRegistered() {
   for ( const RouteKey& key : tables_->anycastDiscoveredSg().keys() ) {
      source( key ).fromPeer.start( config_.rpKeepalivePeriod() );
   }
   // A peer's register alone does not add the register interface to an olist.
   for ( const RouteKey& key : tables_->registerOif().keys() ) {
      if ( rpOnly_ && !isRpOf( key.group ) ) continue;
      Source& passedOn = source( key );
      if ( !passedOn.registered.running() )
         passedOn.fromRouter.start( config_.rpKeepalivePeriod() );
   }
   for ( const RouteKey& key : tables_->noRegisterOif().keys() ) {
      if ( rpOnly_ && !isRpOf( key.group ) ) continue;
      if ( !source( key ).known() )
         source( key ).fromRouter.start( config_.rpKeepalivePeriod() );
   }
   updateConfig();
}

void RegisterEngine::updateConfig() {
   std::vector<RouteKey> keys;
   for ( auto& [key, each] : sources_ ) {
      keys.push_back( key );
      if ( !topology_.pathTo( key.source ).attached ) each->registered.cancel();
      if ( isRpOf( key.group ) ) continue;
      each->fromRouter.cancel();
      each->fromPeer.cancel();
   }
   for ( const RouteKey& key : keys ) update( key );
}

}
