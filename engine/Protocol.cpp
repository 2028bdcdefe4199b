#include "engine/Protocol.h"

#include <algorithm>

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// What has come through a router, or is not from the link's own address (RFC 7761, 4.9).
std::optional<Refusal> faultOfPim( const IpPacket& packet ) {
   if ( packet.ttl != 1 ) return wrongTtl;
   const bool linkLocal =
      packet.family() == Vantu::AddressFamily::ipv4 || packet.source.isLinkLocal();
   return linkLocal ? std::nullopt : std::optional( notLinkLocal );
}

// IGMP is from the link's subnets, or from a host without an address yet; MLD alerts
// routers (RFC 3810, 6.2 and 7.4).
std::optional<Refusal> faultOfMembership( const Link& link,
                                          const IpPacket& packet ) {
   if ( packet.family() == Vantu::AddressFamily::ipv6 )
      return packet.routerAlert ? std::nullopt : std::optional( noRouterAlert );
   const bool ofLink =
      packet.source.isUnspecified() || link.isOnLink( packet.source );
   return ofLink ? std::nullopt : std::optional( offSubnet );
}

// What is sent changes what the next process has to know of a link.
Speech telling( Speech speech, std::function<void()> linksChanged ) {
   if ( !speech.send ) return speech;
   auto send = std::move( speech.send );
   speech.send = [send = std::move( send ),
                  changed = std::move( linksChanged )]( const Outgoing& message ) {
      changed();
      return send( message );
   };
   return speech;
}

}

namespace {

Published::MessageKind kindOf( const Message& message ) {
   if ( const auto* hosts = std::get_if<MembershipMessage>( &message ) )
      return std::holds_alternative<MembershipQuery>( *hosts )
                ? Published::queryMessage
                : Published::reportMessage;
   const auto& body = std::get<PimMessage>( message ).body;
   if ( std::holds_alternative<PimHello>( body ) ) return Published::helloMessage;
   if ( std::holds_alternative<PimJoinPrune>( body ) )
      return Published::joinPruneMessage;
   if ( std::holds_alternative<PimAssert>( body ) ) return Published::assertMessage;
   if ( std::holds_alternative<PimRegister>( body ) )
      return Published::registerMessage;
   if ( std::holds_alternative<PimRegisterStop>( body ) )
      return Published::registerStopMessage;
   return Published::otherPimMessage;
}

}

Protocol::Protocol( Vantu::AddressFamily family, const VrfConfig& config,
                    const Mox::Ptr<Routing::Pim::SparseMode::Status>& model,
                    Mox::Ptr<Routing::Pim::Status> pimStatus,
                    Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers,
                    Mox::Clock& clock, RouterCounters& counters, Hooks hooks )
   : family_( family ),
     config_( config ),
     journal_( counters, std::move( hooks.events ) ),
     linksChanged_( std::move( hooks.linksChanged ) ),
     sender_( telling( std::move( hooks.speech ), linksChanged_ ), counters ),
     links_(
        family, config, std::move( pimStatus ), clock, sender_,
        { linksChanged_,
          [this]( IntfId intfId, const IpGenAddr& address, NeighborEvent event ) {
             handleNeighbor( intfId, address, event );
          },
          [this]( IntfId intfId, const auto& neighbors ) {
             endStates( intfId, neighbors );
          },
          [this]( IntfId intfId ) { tellLink( Published::interfaceCame, intfId ); },
          [this]( IntfId intfId, const IpGenAddr& former, const IpGenAddr& dr ) {
             tellDr( intfId, former, dr );
          } } ),
     topology_( config, std::move( hooks.hostRoutes ) ),
     policy_( family, config ),
     pathSwitch_( model, links_, clock, std::move( hooks.packetAge ),
                  [this]( const auto& key ) { routes_.updatePath( key ); } ),
     filters_( family, config ),
     routes_(
        model, clock, topology_, &policy_, sender_.speaks(),
        { [this, changed = hooks.changed]( const Routing::Pim::RouteIntfKey& key,
                                           const Routes::Change& change ) {
            if ( change.states ) forwarding_.handleRecord( key.routeKey );
            changed( key.routeKey, key.intfId, change.timers );
         },
          [this]( Routes::Route& route, const Topology::Path& path ) {
             const Routing::Pim::Rpf rpf = upstream_.resolve( route, path );
             // Nobody is asked beyond a boundary.
             if ( sender_.speaks() && !permits( rpf.intfId, route.key() ) )
                route.nsfRpfResolvedIs( false );
             return rpf;
          },
          [this]( Routes::Route& route, const Routing::Pim::Rpf& next ) {
             pathSwitch_.changePath( route, next );
          },
          journal_ } ),
     upstream_( routes_, links_, config, sender_, clock, journal_ ),
     joinPrune_( routes_, clock, topology_, &policy_, journal_,
                 [this]( IntfId intfId, const auto& key, const IpGenAddr& rp ) {
                    upstream_.echoPrune( intfId, key, rp );
                 } ),
     membership_( routes_, links_, sender_, clock, &policy_, filters_, journal_ ),
     asserts_( routes_, links_, config, sender_, clock, journal_ ),
     sources_( routes_, clock, topology_, config, sender_.speaks(), journal_ ),
     forwarding_(
        model,
        { [this]( const auto& key ) { review( key ); },
          [changed = hooks.changed]( const auto& key, IntfId intfId ) {
             changed( key, intfId, false );
          },
          [this]( const auto& key ) {
             const Journal::Handling handling( journal_, Published::byState );
             upstream_.review( key );
             asserts_.handleSourceTree( key );
          },
          [this]( const auto& key, IntfId intfId, bool forwards ) {
             const Journal::Handling handling( journal_, Published::byState );
             journal_.tell(
                forwards ? Published::forwardBegan : Published::forwardEnded, key,
                intfId );
          } } ),
     registering_( registers, clock, topology_, config, sender_.speaks(),
                   journal_ ),
     registerSender_(
        { routes_, topology_, &policy_, config, sender_, clock, journal_ },
        std::move( registers ), std::move( hooks.registering ) ),
     registerReceiver_( routes_, sources_, filters_, config, sender_, clock ) {}

void Protocol::handleNeighbor( IntfId intfId, const IpGenAddr& address,
                               NeighborEvent event ) {
   tellNeighbor( intfId, address, event );
   const Journal::Handling handling( journal_, Published::byNeighbor, intfId,
                                     address );
   if ( event == NeighborEvent::gone || event == NeighborEvent::restarted )
      asserts_.handleNeighborLost( intfId, address );
   upstream_.handleNeighbor( intfId, address, event );
}

// A goodbye is a message.
void Protocol::tellNeighbor( IntfId intfId, const IpGenAddr& address,
                             NeighborEvent event ) {
   if ( !journal_.listens() || event == NeighborEvent::moved ) return;
   Published::Event out;
   out.kind = event == NeighborEvent::came   ? Published::neighborCame
              : event == NeighborEvent::gone ? Published::neighborGone
                                             : Published::neighborRestarted;
   if ( event == NeighborEvent::gone && journal_.cause() == Published::byMessage )
      out.cause = Published::byGoodbye;
   out.intf = intfId;
   out.address = address;
   if ( event == NeighborEvent::restarted )
      out.value = links_.find( intfId )
                     ->neighbors()
                     .all()
                     .at( address )
                     .hello.generationId.value_or( 0 );
   journal_.tell( out );
}

void Protocol::tellLink( Published::EventKind kind, IntfId intfId ) {
   Published::Event out;
   out.kind = kind;
   out.intf = intfId;
   journal_.tell( out );
}

void Protocol::tellDr( IntfId intfId, const IpGenAddr& former,
                       const IpGenAddr& dr ) {
   Published::Event out;
   out.kind = Published::drChanged;
   out.intf = intfId;
   out.address = dr;
   out.otherAddress = former;
   journal_.tell( out );
}

void Protocol::start( const Kept& kept ) {
   const Journal::Handling handling( journal_, Published::byRestart );
   links_.start( kept.hello );
   membership_.updateLinks( kept.querier );
   keptJoins_ = kept.lastJoins;
}

// The states that the macros read come before the macros.
void Protocol::review( const Routing::Pim::RouteKey& key ) {
   const Journal::Handling handling( journal_, Published::byState );
   asserts_.review( key );
   if ( !sender_.speaks() ) return;
   upstream_.prepare( key );
   routes_.updateTree( key );
   registerSender_.review( key );
}

void Protocol::endStates( IntfId intfId, const std::vector<IpGenAddr>& neighbors ) {
   tellLink( Published::interfaceGone, intfId );
   const Journal::Handling handling( journal_, Published::byInterface, intfId );
   for ( const IpGenAddr& address : neighbors )
      tellNeighbor( intfId, address, NeighborEvent::gone );
   joinPrune_.handleIntfGone( intfId );
   membership_.handleIntfGone( intfId );
   asserts_.handleIntfGone( intfId );
}

void Protocol::adoptNeighbor( IntfId intfId, const IpGenAddr& address,
                              const Neighbors::Kept& kept ) {
   if ( Link* link = links_.find( intfId ) ) {
      if ( !link->isOwn( address ) ) link->neighbors().adopt( address, kept );
      return;
   }
   const Journal::Handling handling( journal_, Published::byInterface, intfId );
   tellNeighbor( intfId, address, NeighborEvent::gone );
}

void Protocol::adopt( const KeptTimers& kept,
                      const RegisterSender::KeptTimes& registering ) {
   const Journal::Handling handling( journal_, Published::byRestart );
   adopted_ = true;
   routes_.adopt();
   pathSwitch_.adopt();
   joinPrune_.adopt( kept );
   membership_.adopt( kept );
   asserts_.adopt( kept );
   sources_.adopt();
   for ( IntfId intfId : routes_.intfs() ) {
      if ( links_.find( intfId ) == nullptr ) endStates( intfId, {} );
   }
   registering_.adopt();
   registerSender_.adopt( registering );
   upstream_.adopt( keptJoins_ );
}

Published::Downstream Protocol::timers(
   const Routing::Pim::RouteIntfKey& key ) const {
   Published::Downstream record{ key };
   joinPrune_.tell( record );
   membership_.tell( record );
   asserts_.tell( record );
   return record;
}

void Protocol::configChanged() {
   const Journal::Handling handling( journal_, Published::byConfiguration );
   policy_.configIs( config_ );
   filters_.configIs( config_ );
   topology_.configIs( config_ );
   links_.configChanged();
   pathSwitch_.handleLinks();
   forgetBarred();
   membership_.updateLinks();
   if ( !adopted_ ) return;
   joinPrune_.endUnshared();
   membership_.endUnshared();
   updatePaths();
   // A path that stays may lead beyond a boundary now; the group may have another RP.
   for ( const auto& key : Mox::keysOf( routes_.model().route() ) ) {
      upstream_.review( key );
      registerSender_.review( key );
   }
}

// A router that is barred now is gone.
void Protocol::forgetBarred() {
   PimHello goodbye;
   goodbye.holdtime = 0;
   for ( const auto& [intfId, link] : links_.all() ) {
      std::vector<IpGenAddr> barred;
      for ( const auto& [address, neighbor] : link.neighbors().all() ) {
         if ( !filters_.of( intfId ).neighbors.permitsRouter( address ) )
            barred.push_back( address );
      }
      for ( const IpGenAddr& address : barred )
         links_.find( intfId )->neighbors().receiveHello( address, goodbye );
   }
}

void Protocol::pathsChanged() {
   const Journal::Handling handling( journal_, Published::byUnicast );
   if ( adopted_ ) updatePaths();
}

void Protocol::updatePaths() {
   routes_.updatePaths();
   sources_.updatePaths();
   registering_.updateConfig();
}

void Protocol::receiveData( const Routing::Pim::RouteKey& key, IntfId intfId,
                            double age, bool wrong ) {
   const Journal::Handling handling( journal_, Published::byData, intfId );
   if ( !permits( intfId, key ) ) return journal_.refused( beyondBoundary, key );
   sources_.receiveData( key, intfId, age );
   // At once, not with the next counters: the prune of the shared tree that follows may
   // end the only join that the route has.
   if ( routes_.handleData( key, intfId ) ) sources_.receiveMore( key, age );
   // To the kernel a (*,G) entry's packets by an interface not in it are unknown ones.
   if ( wrong || age < PathSwitch::alive ) pathSwitch_.handleData( key, intfId );
   if ( wrong ) asserts_.handleData( key, intfId );
}

void Protocol::receive( IntfId intfId, const IpPacket& packet,
                        const Message& message ) {
   const Journal::Handling handling( journal_, Published::byMessage, intfId,
                                     packet.source, kindOf( message ) );
   // Registers and stops are unicast, whatever link they come by.
   if ( const auto* pim = std::get_if<PimMessage>( &message ) ) {
      if ( const auto* got = std::get_if<PimRegister>( &pim->body ) )
         return receiveRegister( packet, *got );
      if ( const auto* got = std::get_if<PimRegisterStop>( &pim->body ) ) {
         if ( sender_.speaks() ) return registerSender_.receive( packet, *got );
         return registering_.receive( packet, *got );
      }
   }
   Link* link = links_.find( intfId );
   if ( link == nullptr ) return journal_.refused( noAddress );
   if ( const auto* pim = std::get_if<PimMessage>( &message ) )
      return receivePim( *link, packet, *pim );
   receiveMembership( *link, packet, std::get<MembershipMessage>( message ) );
}

// A host without an address yet reports from 0.0.0.0 (RFC 3376, 4.2.13). In IPv6 the
// senders' addresses are the link's by themselves. Who only listens may not know them all.
void Protocol::receiveMembership( const Link& link, const IpPacket& packet,
                                  const MembershipMessage& message ) {
   if ( link.isOwn( packet.source ) ) return journal_.refused( ownPacket );
   if ( sender_.speaks() &&
        !journal_.accepted( faultOfMembership( link, packet ) ) )
      return;
   // The querier may be another one, with other times.
   if ( std::holds_alternative<MembershipQuery>( message ) ) linksChanged_();
   membership_.receive( link, packet.source, message );
}

// Whoever registers with the wrong router is told to stop, too, or a source of a
// source-specific group (RFC 7761, 4.8.1).
void Protocol::receiveRegister( const IpPacket& packet,
                                const PimRegister& message ) {
   const bool toUs =
      isOwn( config_, packet.destination ) && !isOwn( config_, packet.source );
   std::optional<Refusal> barred;
   if ( toUs && !filters_.registers().permits( message.source, message.group ) )
      barred = barredRegister;
   if ( toUs && policy_.sourceSpecific( message.group ) ) barred = ssmGroup;
   const bool served =
      journal_.accepted( barred, { message.source, message.group } ) &&
      registering_.receive( packet, message );
   if ( !sender_.speaks() ) return;
   if ( served ) return registerReceiver_.receive( packet, message );
   if ( toUs && !refusalOfRoute( message.source, message.group ) )
      registerReceiver_.refuse( packet, message );
}

void Protocol::receiveShared( const Routing::Pim::RouteKey& key, double rate ) {
   const Journal::Handling handling( journal_, Published::byData );
   const double threshold = filters_.sptThreshold( key.group );
   const bool switches =
      sender_.speaks() && ( threshold == 0.0 || rate > threshold );
   const Mox::Ptr<Routes::Route> shared =
      routes_.find( { anySource( key.group ), key.group } );
   if ( !switches || shared == nullptr ) return;
   const Mox::Ptr<Routes::Route> route = routes_.find( key );
   for ( const Routes::Intf& intf : std::as_const( *shared ).routeIntf() ) {
      const Routes::Intf* own =
         route == nullptr ? nullptr
                          : std::as_const( *route ).routeIntf( intf.intfId() );
      const bool member =
         intf.includeWc() && ( own == nullptr || !own->excludeSg() );
      if ( !member ) continue;
      sources_.keepAlive( key, config_.keepalivePeriod );
      return;
   }
}

void Protocol::receivePim( Link& link, const IpPacket& packet,
                           const PimMessage& message ) {
   if ( link.isOwn( packet.source ) ) return journal_.refused( ownPacket );
   if ( std::holds_alternative<std::monostate>( message.body ) )
      return journal_.refused( otherType );
   if ( link.config().passive ) return journal_.refused( passiveLink );
   if ( packet.destination != allPimRouters( family_ ) )
      return journal_.refused( notToAllRouters );
   // Who only listens takes what there is.
   if ( sender_.speaks() && !journal_.accepted( faultOfPim( packet ) ) ) return;
   if ( !filters_.of( link.intfId() ).neighbors.permitsRouter( packet.source ) )
      return journal_.refused( barredNeighbor );
   if ( !journal_.accepted( refusalOfSource( packet.source ) ) ) return;
   if ( const auto* hello = std::get_if<PimHello>( &message.body ) ) {
      if ( !link.neighbors().receiveHello( packet.source, *hello ) )
         journal_.refused( tooManyNeighbors );
      return;
   }
   receiveOfNeighbor( link, packet, message );
}

namespace {

bool asks( const PimJoinPrune& message ) {
   return std::any_of( message.groups.begin(), message.groups.end(),
                       []( const auto& group ) { return !group.joins.empty(); } );
}

}

void Protocol::receiveOfNeighbor( const Link& link, const IpPacket& packet,
                                  const PimMessage& message ) {
   if ( config_.requireHello && !link.neighbors().has( packet.source ) ) {
      const auto* joins = std::get_if<PimJoinPrune>( &message.body );
      const bool ours = joins == nullptr || link.isOwn( joins->upstreamNeighbor );
      const Journal::Ending ending( journal_, joins != nullptr && !asks( *joins ) );
      return journal_.refused( ours ? unknownNeighbor : otherUpstream );
   }
   if ( const auto* got = std::get_if<PimAssert>( &message.body ) )
      return receiveAssert( link.intfId(), packet.source, *got );
   receiveJoinPrune( link, std::get<PimJoinPrune>( message.body ) );
}

void Protocol::receiveAssert( IntfId intfId, const IpGenAddr& sender,
                              const PimAssert& message ) {
   asserts_.receive( intfId, sender, message );
   if ( sender_.speaks() )
      joinPrune_.handleAssert( { { message.source, message.group }, intfId } );
}

void Protocol::receiveJoinPrune( const Link& link, const PimJoinPrune& message ) {
   if ( !link.isOwn( message.upstreamNeighbor ) ) {
      journal_.refused( otherUpstream );
      return upstream_.receive( link, message );
   }
   const AccessFilters::OfLink& filters = filters_.of( link.intfId() );
   if ( !filters.joins.all() || !filters.boundary.all() ) {
      const PimJoinPrune rest = permitted( link.intfId(), message );
      asserts_.receive( link.intfId(), rest );
      return joinPrune_.receive( link.intfId(), link.neighbors(), rest );
   }
   asserts_.receive( link.intfId(), message );
   joinPrune_.receive( link.intfId(), link.neighbors(), message );
}

// Prunes are taken all the same, and what takes an (S,G,rpt) prune back.
PimJoinPrune Protocol::permitted( IntfId intfId, PimJoinPrune message ) {
   const AccessFilters::OfLink& filters = filters_.of( intfId );
   for ( JoinPruneGroup& group : message.groups ) {
      std::erase_if( group.joins, [&]( const EncodedSource& join ) {
         if ( join.rpt && !join.wildcard ) return false;
         const IpGenAddr source =
            join.wildcard ? anySource( group.address ) : join.address;
         std::optional<Refusal> refusal;
         if ( !filters.joins.permits( source, group.address ) )
            refusal = barredJoin;
         if ( !filters.boundary.permits( source, group.address ) )
            refusal = beyondBoundary;
         return !journal_.accepted( refusal, { source, group.address } );
      } );
   }
   return message;
}

}
