#include "engine/RegisterSender.h"

#include <algorithm>

namespace Router {

using Routing::Pim::SparseMode::InternalRouteKey;
using Vantu::IpGenAddr;

struct RegisterSender::Source {
   Source( Mox::Clock& clock, std::function<void()> over )
      : timer( clock, std::move( over ) ) {}

   State state = State::join;
   IpGenAddr rp;
   Timer timer;  // of the suppression, then of the probe
};

RegisterSender::RegisterSender(
   const Context& context,
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables,
   std::function<void( const RouteKey& )> changed )
   : in_( context ),
     tables_( std::move( tables ) ),
     changed_( std::move( changed ) ) {}

RegisterSender::~RegisterSender() = default;

// RFC 7761, 4.4.1: CouldRegister(S,G), without its timer's part.
bool RegisterSender::isFirstHop( const Routes::Route& route ) const {
   if ( route.wildCard() || route.katExpired() || !route.directlyConnected() )
      return false;
   if ( in_.policy != nullptr && in_.policy->sourceSpecific( route.key().group ) )
      return false;
   const auto& pim = in_.routes.model().pimStatus();
   const auto* intf = pim == nullptr ? nullptr : pim->intf( route.rpf().intfId );
   return intf != nullptr && intf->iAmDr();
}

// Null where the group's RP is not this router, or this router alone.
const AnycastRpConfig* RegisterSender::ownSet( const IpGenAddr& group ) const {
   const IpGenAddr rp = in_.topology.rpOf( group );
   return isOwn( in_.config, rp ) ? anycastRp( in_.config, rp ) : nullptr;
}

void RegisterSender::reviewPeers( const RouteKey& key, const Routes::Route* route,
                                  bool atOnce ) {
   const bool tells =
      route != nullptr && ownSet( key.group ) != nullptr && isFirstHop( *route );
   if ( !tells ) {
      told_.erase( key );
      return;
   }
   const auto [next, isNew] =
      told_.try_emplace( key, in_.clock, [this, key] { tellPeers( key ); } );
   if ( !isNew ) return;
   if ( atOnce ) return tellPeers( key );
   next->second.start(
      in_.sender.randomTime( in_.config.registerSuppressionTime ) );
}

void RegisterSender::tellPeers( const RouteKey& key ) {
   told_.at( key ).start( in_.config.registerSuppressionTime );
   const AnycastRpConfig* set = ownSet( key.group );
   if ( set == nullptr ) return;
   PimRegister message;
   message.nullRegister = true;
   message.source = key.source;
   message.group = key.group;
   for ( const IpGenAddr& peer : set->peers )
      in_.sender.send( { {}, set->local, peer, pimMessage( message ) } );
}

RegisterSender::Source& RegisterSender::source( const RouteKey& key ) {
   std::unique_ptr<Source>& found = sources_[key];
   if ( found == nullptr )
      found =
         std::make_unique<Source>( in_.clock, [this, key] { handleTime( key ); } );
   return *found;
}

void RegisterSender::review( const RouteKey& key ) {
   if ( !in_.sender.speaks() || key.source.isUnspecified() ) return;
   const Mox::Ptr<Routes::Route> route = in_.routes.find( key );
   const IpGenAddr rp = in_.topology.rpOf( key.group );
   const auto found = sources_.find( key );
   reviewPeers( key, route.get(), true );
   const bool could = route != nullptr && !rp.isUnspecified() &&
                      !isOwn( in_.config, rp ) && isFirstHop( *route );
   if ( !could ) {
      if ( found != sources_.end() ) forget( key );
      return;
   }
   if ( found != sources_.end() && found->second->rp == rp )
      return mark( key, true, found->second->state == State::join );
   Source& at = source( key );
   at.rp = rp;
   enter( key, at, State::join );
}

void RegisterSender::tell( Published::EventKind kind, const RouteKey& key,
                           const IpGenAddr& rp ) {
   Published::Event event = in_.journal.eventOf( kind, key );
   event.address = rp;
   in_.journal.tell( event );
}

void RegisterSender::enter( const RouteKey& key, Source& at, State state ) {
   tell( state == State::join    ? Published::registerBegan
         : state == State::prune ? Published::registerStopped
                                 : Published::registerProbes,
         key, at.rp );
   at.state = state;
   if ( state == State::join ) at.timer.cancel();
   publish( key, state == State::join );
   mark( key, true, state == State::join );
   changed_( key );
}

void RegisterSender::stop( const RouteKey& key, Source& at ) {
   enter( key, at, State::prune );
   const double time = in_.config.registerSuppressionTime;
   at.timer.start( time / 2 + in_.sender.randomTime( time ) -
                   in_.config.registerProbeTime );
   changed_( key );
}

// The source's keepalive may have ended at the same time.
void RegisterSender::handleTime( const RouteKey& key ) {
   if ( in_.routes.find( key ) == nullptr ) return forget( key );
   Source& at = *sources_.at( key );
   if ( at.state != State::prune ) return enter( key, at, State::join );
   enter( key, at, State::joinPending );
   at.timer.start( in_.config.registerProbeTime );
   changed_( key );
   sendNull( key, at );
}

void RegisterSender::sendNull( const RouteKey& key, const Source& at ) {
   PimRegister message;
   message.nullRegister = true;
   message.source = key.source;
   message.group = key.group;
   const Mox::Ptr<Routes::Route> route = in_.routes.find( key );
   const IpGenAddr from =
      registerSource( in_.config, route->rpf().intfId, key.source.family() );
   in_.sender.send( { {}, from, at.rp, pimMessage( std::move( message ) ) } );
}

void RegisterSender::receive( const IpPacket& packet,
                              const PimRegisterStop& message ) {
   if ( isOwn( in_.config, packet.source ) )
      return in_.journal.refused( ownPacket );
   if ( !isOwn( in_.config, packet.destination ) )
      return in_.journal.refused( notToUs );
   if ( !in_.journal.accepted( refusalOfGroup( message.group ) ) ) return;
   if ( message.maskLength != hostMask( message.group ) )
      return in_.journal.refused( partialMask, { message.source, message.group } );
   const IpGenAddr rp = in_.topology.rpOf( message.group );
   const AnycastRpConfig* set = anycastRp( in_.config, rp );
   if ( set != nullptr && set->has( packet.source ) )
      return in_.journal.refused( stopOfPeer, { message.source, message.group } );
   if ( rp != packet.source )
      return in_.journal.refused( rpMismatch, { message.source, message.group } );
   bool any = false;
   for ( auto& [key, at] : sources_ ) {
      const bool meant =
         key.group == message.group &&
         ( message.source.isUnspecified() || key.source == message.source );
      if ( !meant ) continue;
      any = true;
      if ( at->state != State::prune ) stop( key, *at );
   }
   if ( !any )
      in_.journal.refused( notRegistered, { message.source, message.group } );
}

// The route says it to the forwarding process, the tables to everybody.
void RegisterSender::mark( const RouteKey& key, bool dr, bool registers ) {
   const Mox::Ptr<Routes::Route> route = in_.routes.find( key );
   if ( route == nullptr ) return;
   Routes::Route::RouteFlags flags = route->routeFlags();
   flags.drDiscoveredIs( dr );
   flags.oifRegisterIs( registers );
   route->routeFlagsIs( flags );
}

// Additions before removals: a source that moves is in both for a moment.
void RegisterSender::publish( const RouteKey& key, bool registers ) {
   const InternalRouteKey value( key );
   auto& tables = *tables_;
   try {
      if ( registers && !tables.registerOif().has( key ) )
         tables.registerOifIs( value );
      if ( !registers && !tables.noRegisterOif().has( key ) )
         tables.noRegisterOifIs( value );
      if ( !tables.drDiscoveredSg().has( key ) ) tables.drDiscoveredSgIs( value );
   } catch ( const ::Brane::NoRoomError& ) {
      return in_.journal.refused( tableFull, key );
   }
   if ( registers ) {
      tables.noRegisterOifDel( key );
   } else {
      tables.registerOifDel( key );
   }
}

void RegisterSender::forget( const RouteKey& key ) {
   const auto found = sources_.find( key );
   if ( found != sources_.end() )
      tell( Published::registerEnded, key, found->second->rp );
   sources_.erase( key );
   tables_->registerOifDel( key );
   tables_->noRegisterOifDel( key );
   tables_->drDiscoveredSgDel( key );
   mark( key, false, false );
   changed_( key );
}

void RegisterSender::adopt( const KeptTimes& kept ) {
   if ( !in_.sender.speaks() ) return;
   for ( const RouteKey& key : tables_->drDiscoveredSg().keys() ) {
      Source& at = source( key );
      at.rp = in_.topology.rpOf( key.group );
      const std::optional<Kept> former = kept ? kept( key ) : std::nullopt;
      if ( !tables_->noRegisterOif().has( key ) ) continue;
      at.state = former && former->probing ? State::joinPending : State::prune;
      if ( former ) {
         at.timer.startUntil( std::max( former->until, in_.clock.now() ) );
      } else {
         at.timer.start( in_.config.registerSuppressionTime / 2 -
                         in_.config.registerProbeTime );
      }
   }
   // The others know what a former process told them.
   for ( const auto& route : in_.routes.model().route() )
      if ( !route.wildCard() ) reviewPeers( route.key(), &route, false );
   for ( const RouteKey& key : tables_->drDiscoveredSg().keys() ) review( key );
}

std::optional<RegisterSender::Kept> RegisterSender::kept(
   const RouteKey& key ) const {
   auto found = sources_.find( key );
   if ( found == sources_.end() || !found->second->timer.running() )
      return std::nullopt;
   return Kept{ found->second->state == State::joinPending,
                found->second->timer.until() };
}

}
