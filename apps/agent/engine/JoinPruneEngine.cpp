#include "apps/agent/engine/JoinPruneEngine.h"

#include <algorithm>

#include "apps/agent/engine/RecordState.h"

namespace Agent {

using Routing::Pim::SparseMode::Status;
using Vantu::IpGenAddr;

namespace {

constexpr uint16_t kForever = 0xffff;

IpGenAddr anySource( const IpGenAddr& group ) {
   return IpGenAddr::unspecified( group.family() );
}

bool wholeAddress( const IpGenAddr& address, unsigned maskLength ) {
   return maskLength == Vantu::addressBits( address.family() );
}

}

JoinPruneEngine::JoinPruneEngine( Mox::Ptr<Status> model, Mox::Clock& clock,
                                  const StaticRouting& routing,
                                  AgentCounters& counters )
   : model_( std::move( model ) ),
     clock_( clock ),
     routing_( routing ),
     counters_( counters ) {}

void JoinPruneEngine::receive( Vantu::IntfId intfId, const Neighbors& neighbors,
                               const PimJoinPrune& message ) {
   Message common{ intfId,
                   message.holdtime == kForever ? Timer::never : message.holdtime,
                   neighbors.prunePendingTime() };
   for ( const JoinPruneGroup& group : message.groups ) {
      if ( !acceptGroup( group ) ) continue;
      for ( const EncodedSource& source : group.joins ) {
         receiveJoin( common, group.address, source );
      }
      for ( const EncodedSource& source : group.prunes ) {
         receivePrune( common, group.address, source );
      }
   }
   for ( const JoinPruneGroup& group : message.groups ) {
      eachRptPrune( group.address, intfId, []( auto& it ) { it.endOfMessage(); } );
   }
}

bool JoinPruneEngine::acceptGroup( const JoinPruneGroup& group ) {
   if ( !group.address.isMulticast() ) {
      counters_.refused( notMulticast );
   } else if ( group.address.isLinkLocalMulticast() ) {
      counters_.refused( linkLocalGroup );
   } else if ( !wholeAddress( group.address, group.maskLength ) ) {
      counters_.refused( partialMask );
   } else {
      return true;
   }
   return false;
}

bool JoinPruneEngine::acceptSource( const EncodedSource& source,
                                    const IpGenAddr& group ) {
   if ( !wholeAddress( group, source.maskLength ) ) {
      counters_.refused( partialMask );
   } else if ( source.address.isUnspecified() || source.address.isMulticast() ) {
      counters_.refused( badSource );
   } else if ( source.wildcard && !source.rpt ) {
      counters_.refused( badFlags );
   } else {
      return true;
   }
   return false;
}

void JoinPruneEngine::receiveJoin( const Message& message, const IpGenAddr& group,
                                   const EncodedSource& source ) {
   if ( !acceptSource( source, group ) ) return;
   if ( source.wildcard ) return receiveWcJoin( message, group, source.address );
   Key key{ group, message.intfId, source.address };
   if ( !source.rpt ) {
      joinMachine( key, routing_.rpOf( group ) ).receiveJoin( message.holdtime );
      updateTree( *model_->route( key.routeKey() ) );
      return;
   }
   Downstream* found = find( key );
   if ( found != nullptr && found->rptPrune != nullptr ) {
      found->rptPrune->receiveRptJoin();
   }
}

// RFC 4607, 4: a source-specific group has no shared tree.
bool JoinPruneEngine::refuseSharedTree( const IpGenAddr& group ) {
   if ( policy_ == nullptr || !policy_->sourceSpecific( group ) ) return false;
   counters_.refused( ssmGroup );
   return true;
}

// RFC 7761, 4.5.1: towards another RP than ours it is dropped; without an RP of our
// own we take the message's.
void JoinPruneEngine::receiveWcJoin( const Message& message, const IpGenAddr& group,
                                     const IpGenAddr& rp ) {
   if ( refuseSharedTree( group ) ) return;
   IpGenAddr ours = routing_.rpOf( group );
   if ( !ours.isUnspecified() && ours != rp )
      return counters_.refused( rpMismatch );
   Key key{ group, message.intfId, anySource( group ) };
   joinMachine( key, rp ).receiveJoin( message.holdtime );
   eachRptPrune( group, message.intfId, []( auto& it ) { it.receiveWcJoin(); } );
}

// A (*,G) prune counts whatever RP it names (RFC 7761, 4.5.1).
void JoinPruneEngine::receivePrune( const Message& message, const IpGenAddr& group,
                                    const EncodedSource& source ) {
   if ( !acceptSource( source, group ) ) return;
   if ( source.rpt && !source.wildcard ) {
      if ( refuseSharedTree( group ) ) return;
      Key key{ group, message.intfId, source.address };
      rptPruneMachine( key ).receiveRptPrune( message.holdtime,
                                              message.pendingTime );
      return;
   }
   Key key{ group, message.intfId,
            source.wildcard ? anySource( group ) : source.address };
   Downstream* found = find( key );
   if ( found != nullptr && found->join != nullptr ) {
      found->join->receivePrune( message.pendingTime );
   }
}

// The call may end the machine and with it the entry: the next one is found anew.
template <class Call>
void JoinPruneEngine::eachRptPrune( const IpGenAddr& group, Vantu::IntfId intfId,
                                    Call call ) {
   Key key{ group, intfId, anySource( group ) };
   auto next = downstream_.upper_bound( key );
   while ( next != downstream_.end() && next->first.group == group &&
           next->first.intfId == intfId ) {
      key = next->first;
      if ( next->second.rptPrune != nullptr ) call( *next->second.rptPrune );
      next = downstream_.upper_bound( key );
   }
}

JoinPruneEngine::Downstream* JoinPruneEngine::find( const Key& key ) {
   auto found = downstream_.find( key );
   return found == downstream_.end() ? nullptr : &found->second;
}

DownstreamJoin& JoinPruneEngine::joinMachine( const Key& key,
                                              const IpGenAddr& rp ) {
   Downstream& machines = downstream_[key];
   if ( machines.join == nullptr ) {
      machines.join = std::make_unique<DownstreamJoin>(
         clock_, record( key, rp ), [this, key] { handleEnded( key ); } );
   }
   return *machines.join;
}

DownstreamRptPrune& JoinPruneEngine::rptPruneMachine( const Key& key ) {
   Downstream& machines = downstream_[key];
   if ( machines.rptPrune == nullptr ) {
      machines.rptPrune = std::make_unique<DownstreamRptPrune>(
         clock_, record( key, routing_.rpOf( key.group ) ),
         [this, key] { handleEnded( key ); } );
   }
   return *machines.rptPrune;
}

Mox::Ptr<JoinPruneEngine::Intf> JoinPruneEngine::record( const Key& key,
                                                         const IpGenAddr& rp ) {
   Mox::Ptr<Route> route = model_->route( key.routeKey() );
   if ( route == nullptr ) route = newRoute( key.routeKey(), rp );
   Mox::Ptr<Intf> intf = route->routeIntfIs( key.intfId );
   intf->initializedIs( true );
   return intf;
}

Mox::Ptr<JoinPruneEngine::Route> JoinPruneEngine::newRoute( const RouteKey& key,
                                                            const IpGenAddr& rp ) {
   bool wildcard = key.source.isUnspecified();
   Mox::Ptr<Route> route = model_->routeIs( key );
   Route::RouteFlags flags = route->routeFlags();
   flags.wildCardIs( wildcard );
   flags.rpTreeIs( true );
   route->routeFlagsIs( flags );
   route->creationTimeIs( clock_.now() );
   updatePath( *route, rp );
   route->initializedIs( true );
   return route;
}

void JoinPruneEngine::updatePath( Route& route, const IpGenAddr& rp ) {
   const IpGenAddr& source = route.key().source;
   StaticRouting::Path path =
      routing_.pathTo( source.isUnspecified() ? rp : source );
   Mox::Ptr<Routing::Pim::SparseMode::UpstreamInfo> umh = route.umhIs();
   umh->rpIs( rp );
   umh->rpfAttachedIs( path.attached );
   umh->doUpdateRpf( path.rpf );
   updateBackup( route, path );
}

void JoinPruneEngine::updateBackup( Route& route,
                                    const StaticRouting::Path& path ) {
   const RouteKey key = route.key();
   bool wanted = policy_ != nullptr && path.backup != Routing::Pim::Rpf() &&
                 policy_->frrEnabled( key.source, key.group );
   if ( !wanted ) {
      route.umhFrrDel();
      return;
   }
   Mox::Ptr<Routing::Pim::SparseMode::UpstreamInfo> backup = route.umhFrrIs();
   backup->routeIs( &route );
   backup->frrIs( true );
   route.doUpdateRpfFrr( path.backup, path.backupAttached );
}

// The record goes with the last state on it, unless the (*,G) route's stands behind
// it; the route with the last record that has a state.
void JoinPruneEngine::handleEnded( const Key& key ) {
   Mox::Ptr<Route> route = model_->route( key.routeKey() );
   if ( route == nullptr ) {
      downstream_.erase( key );
      return;
   }
   const Intf* intf = route->routeIntf( key.intfId );
   if ( intf != nullptr && holdsState( *intf ) ) {
      updateTree( *route );
      return;
   }
   if ( !holdsState( *route ) ) {
      model_->routeDel( key.routeKey() );
   } else {
      if ( intf != nullptr && !inherits( *intf, std::as_const( *route ).wc() ) )
         route->routeIntfDel( key.intfId );
      updateTree( *route );
   }
   downstream_.erase( key );
}

void JoinPruneEngine::updateTree( Route& route ) {
   if ( route.wildCard() ) return;
   bool joined = false;
   for ( const Intf& intf : std::as_const( route ).routeIntf() ) {
      joined = joined || intf.joinState() != Intf::noInfo;
   }
   Route::RouteFlags flags = route.routeFlags();
   flags.spTreeIs( joined );
   flags.rpTreeIs( !joined );
   route.routeFlagsIs( flags );
}

void JoinPruneEngine::updatePaths() {
   endSourceSpecific();
   for ( const RouteKey& key : Mox::keysOf( model_->route() ) ) {
      Mox::Ptr<Route> route = model_->route( key );
      bool wildcard = key.source.isUnspecified();
      IpGenAddr rp = routing_.rpOf( key.group );
      if ( rp.isUnspecified() && wildcard ) rp = route->umhIs()->rp();
      // After a restart a joined RP is not known any more, only the path to it.
      if ( !wildcard || !rp.isUnspecified() ) updatePath( *route, rp );
   }
}

void JoinPruneEngine::endSourceSpecific() {
   if ( policy_ == nullptr ) return;
   endIf( [&]( const Key& key, const Downstream& machines ) {
      bool shared = key.source.isUnspecified() || machines.rptPrune != nullptr;
      return shared && policy_->sourceSpecific( key.group );
   } );
}

std::set<Vantu::IntfId> JoinPruneEngine::recordedIntfs() const {
   std::set<Vantu::IntfId> intfs;
   for ( const auto& [key, machines] : downstream_ ) intfs.insert( key.intfId );
   return intfs;
}

void JoinPruneEngine::handleIntfGone( Vantu::IntfId intfId ) {
   endIf(
      [&]( const Key& key, const Downstream& ) { return key.intfId == intfId; } );
}

// Ends all state on the records that the condition names.
void JoinPruneEngine::endIf(
   const std::function<bool( const Key&, const Downstream& )>& condition ) {
   std::vector<Key> keys;
   for ( const auto& [key, machines] : downstream_ ) {
      if ( condition( key, machines ) ) keys.push_back( key );
   }
   for ( const Key& key : keys ) {
      Route* route = model_->route( key.routeKey() );
      if ( route == nullptr || route->routeIntf( key.intfId ) == nullptr ) continue;
      Mox::Ptr<Intf> intf = route->routeIntf( key.intfId );
      intf->joinStateIs( Intf::noInfo );
      intf->rptStateIs( Intf::rptNoInfo );
      handleEnded( key );
   }
}

// Shared trees first: they say which records of the source trees stay.
void JoinPruneEngine::adopt() {
   std::vector<RouteKey> keys = Mox::keysOf( model_->route() );
   std::stable_partition( keys.begin(), keys.end(), []( const RouteKey& key ) {
      return key.source.isUnspecified();
   } );
   for ( const RouteKey& key : keys ) adoptRoute( *model_->route( key ) );
   endSourceSpecific();
}

// A route or record without state is what a process left that died between two
// writes. The configuration may have changed meanwhile. An RP that is not
// configured came with a join; the tables keep the path to it alone.
void JoinPruneEngine::adoptRoute( Route& route ) {
   RouteKey key = route.key();
   if ( !holdsState( route ) ) {
      model_->routeDel( key );
      return;
   }
   IpGenAddr rp = routing_.rpOf( key.group );
   for ( Vantu::IntfId intfId : Mox::keysOf( route.routeIntf() ) ) {
      Mox::Ptr<Intf> intf = route.routeIntf( intfId );
      adoptIntf( { key.group, intfId, key.source }, *intf, rp );
      if ( !holdsState( *intf ) && !inherits( *intf, std::as_const( route ).wc() ) )
         route.routeIntfDel( intfId );
   }
   if ( !key.source.isUnspecified() || !rp.isUnspecified() ) {
      updatePath( route, rp );
   }
   updateTree( route );
}

void JoinPruneEngine::adoptIntf( const Key& key, const Intf& intf,
                                 const IpGenAddr& rp ) {
   bool joined = intf.joinState() != Intf::noInfo;
   bool pruned = intf.rptState() != Intf::rptNoInfo;
   if ( joined ) joinMachine( key, rp ).adopt( defaultHoldtime );
   if ( pruned ) rptPruneMachine( key ).adopt( defaultHoldtime );
}

}
