#include "engine/JoinPruneEngine.h"

#include <algorithm>

#include "engine/RecordState.h"

namespace Router {

using Vantu::IpGenAddr;

namespace {

constexpr uint16_t kForever = 0xffff;

bool wholeAddress( const IpGenAddr& address, unsigned maskLength ) {
   return maskLength == Vantu::addressBits( address.family() );
}

}

JoinPruneEngine::JoinPruneEngine(
   Routes& routes, Mox::Clock& clock, const Topology& topology,
   const GroupPolicy* policy, RouterCounters& counters,
   std::function<void( const RouteKey&, Vantu::IntfId )> timed )
   : routes_( routes ),
     clock_( clock ),
     topology_( topology ),
     policy_( policy ),
     counters_( counters ),
     timed_( std::move( timed ) ) {}

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
   if ( !counters_.accepted( refusalOfGroup( group.address ) ) ) return false;
   if ( wholeAddress( group.address, group.maskLength ) ) return true;
   counters_.refused( partialMask );
   return false;
}

bool JoinPruneEngine::acceptSource( const EncodedSource& source,
                                    const IpGenAddr& group ) {
   std::optional<Refusal> refusal = refusalOfSource( source.address );
   if ( !wholeAddress( group, source.maskLength ) ) {
      refusal = partialMask;
   } else if ( !refusal && source.wildcard && !source.rpt ) {
      refusal = badFlags;
   }
   return counters_.accepted( refusal );
}

void JoinPruneEngine::receiveJoin( const Message& message, const IpGenAddr& group,
                                   const EncodedSource& source ) {
   if ( !acceptSource( source, group ) ) return;
   if ( source.wildcard ) return receiveWcJoin( message, group, source.address );
   Key key{ group, message.intfId, source.address };
   if ( !source.rpt ) {
      if ( !routes_.hasRoom( key.routeKey() ) )
         return counters_.refused( tableFull );
      joinMachine( key ).receiveJoin( message.holdtime );
      routes_.update( key.routeKey() );
      timed_( key.routeKey(), key.intfId );
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

// RFC 7761, 4.5.1: a join towards an RP other than ours is dropped. Without an RP
// of our own we take the message's.
void JoinPruneEngine::receiveWcJoin( const Message& message, const IpGenAddr& group,
                                     const IpGenAddr& rp ) {
   if ( refuseSharedTree( group ) ) return;
   IpGenAddr ours = topology_.rpOf( group );
   if ( !ours.isUnspecified() && ours != rp )
      return counters_.refused( rpMismatch );
   Key key{ group, message.intfId, anySource( group ) };
   if ( !routes_.hasRoom( key.routeKey() ) ) return counters_.refused( tableFull );
   joinMachine( key, rp ).receiveJoin( message.holdtime );
   timed_( key.routeKey(), key.intfId );
   eachRptPrune( group, message.intfId, []( auto& it ) { it.receiveWcJoin(); } );
}

// A (*,G) prune counts regardless of its RP (RFC 7761, 4.5.1).
void JoinPruneEngine::receivePrune( const Message& message, const IpGenAddr& group,
                                    const EncodedSource& source ) {
   if ( !acceptSource( source, group ) ) return;
   if ( source.rpt && !source.wildcard ) {
      if ( refuseSharedTree( group ) ) return;
      Key key{ group, message.intfId, source.address };
      if ( !routes_.hasRoom( key.routeKey() ) )
         return counters_.refused( tableFull );
      rptPruneMachine( key ).receiveRptPrune( message.holdtime,
                                              message.pendingTime );
      timed_( key.routeKey(), key.intfId );
      return;
   }
   Key key{ group, message.intfId,
            source.wildcard ? anySource( group ) : source.address };
   Downstream* found = find( key );
   if ( found != nullptr && found->join != nullptr ) {
      found->join->receivePrune( message.pendingTime );
   }
}

// The call may end the machine and so remove the entry: the next one is looked up
// anew.
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
         clock_, routes_.record( key.routeKey(), key.intfId, rp ),
         [this, key] { handleEnded( key ); } );
   }
   return *machines.join;
}

DownstreamRptPrune& JoinPruneEngine::rptPruneMachine( const Key& key ) {
   Downstream& machines = downstream_[key];
   if ( machines.rptPrune == nullptr ) {
      machines.rptPrune = std::make_unique<DownstreamRptPrune>(
         clock_, routes_.record( key.routeKey(), key.intfId ),
         [this, key] { handleEnded( key ); } );
   }
   return *machines.rptPrune;
}

// The record stays while any engine has a state on it.
void JoinPruneEngine::handleEnded( const Key& key ) {
   Mox::Ptr<Intf> intf = routes_.find( key.routeKey(), key.intfId );
   bool ours = intf != nullptr && ( intf->joinState() != Intf::noInfo ||
                                    intf->rptState() != Intf::rptNoInfo );
   routes_.update( key.routeKey(), key.intfId );
   if ( !ours ) downstream_.erase( key );
}

void JoinPruneEngine::endSourceSpecific() {
   if ( policy_ == nullptr ) return;
   endIf( [&]( const Key& key, const Downstream& machines ) {
      bool shared = key.source.isUnspecified() || machines.rptPrune != nullptr;
      return shared && policy_->sourceSpecific( key.group );
   } );
}

void JoinPruneEngine::handleIntfGone( Vantu::IntfId intfId ) {
   endIf(
      [&]( const Key& key, const Downstream& ) { return key.intfId == intfId; } );
}

// Ends all state on the records that meet the condition.
void JoinPruneEngine::endIf(
   const std::function<bool( const Key&, const Downstream& )>& condition ) {
   std::vector<Key> keys;
   for ( const auto& [key, machines] : downstream_ ) {
      if ( condition( key, machines ) ) keys.push_back( key );
   }
   for ( const Key& key : keys ) {
      Mox::Ptr<Intf> intf = routes_.find( key.routeKey(), key.intfId );
      if ( intf == nullptr ) continue;
      intf->joinStateIs( Intf::noInfo );
      intf->rptStateIs( Intf::rptNoInfo );
      handleEnded( key );
   }
}

// A machine whose prune is ignored may go with its route, so the keys are copied
// first.
void JoinPruneEngine::adopt( const KeptTimers& kept ) {
   std::vector<RouteIntfKey> keys;
   for ( const auto& route : routes_.model().route() ) {
      for ( const Intf& intf : route.routeIntf() ) {
         if ( intf.joinState() != Intf::noInfo ||
              intf.rptState() != Intf::rptNoInfo )
            keys.push_back( { route.key(), intf.intfId() } );
      }
   }
   for ( const RouteIntfKey& key : keys ) {
      const Mox::Ptr<Intf> intf = routes_.find( key.routeKey, key.intfId );
      const Published::Downstream timers = kept( key );
      if ( intf->joinState() != Intf::noInfo )
         joinMachine( Key::of( key ) ).adopt( timers );
      if ( intf->rptState() != Intf::rptNoInfo )
         rptPruneMachine( Key::of( key ) ).adopt( timers );
   }
   endSourceSpecific();
}

void JoinPruneEngine::tell( Published::Downstream& record ) const {
   auto found = downstream_.find( Key::of( record.key ) );
   if ( found == downstream_.end() ) return;
   if ( found->second.join != nullptr ) found->second.join->tell( record );
   if ( found->second.rptPrune != nullptr ) found->second.rptPrune->tell( record );
}

}
