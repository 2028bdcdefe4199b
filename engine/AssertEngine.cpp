#include "engine/AssertEngine.h"

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

AssertEngine::AssertEngine( Routes& routes, Links& links, const VrfConfig& config,
                            const Sender& sender, Mox::Clock& clock,
                            Journal& journal )
   : routes_( routes ),
     links_( links ),
     config_( config ),
     sender_( sender ),
     clock_( clock ),
     journal_( journal ) {}

void AssertEngine::send( const Key& key, const AssertMetric& metric ) {
   Link* link = links_.find( key.intfId );
   if ( link == nullptr ) return;
   PimAssert message{ .group = key.group, .source = key.source };
   message.rptBit = metric.rptBit;
   message.preference = metric.preference.value();
   message.metric = metric.metric.value;
   link->send( anySource( key.group ), std::move( message ) );
}

bool AssertEngine::accept( const PimAssert& message ) {
   if ( !journal_.accepted( refusalOfGroup( message.group ),
                            { message.source, message.group } ) )
      return false;
   std::optional<Refusal> refusal;
   if ( message.maskLength != hostMask( message.group ) ) {
      refusal = partialMask;
   } else if ( message.source.isMulticast() ) {
      refusal = badSource;
   }
   return journal_.accepted( refusal, { message.source, message.group } );
}

// Without a route of the group no traffic is forwarded that could cause an assert.
bool AssertEngine::concerns( const RouteKey& key ) {
   return routes_.find( key ) != nullptr ||
          routes_.find( { anySource( key.group ), key.group } ) != nullptr;
}

// The (*,G) machine gets a message only when the (S,G) machine is in noInfo before
// and after it (RFC 7761, 4.6.2).
void AssertEngine::receive( IntfId intfId, const IpGenAddr& sender,
                            const PimAssert& message ) {
   if ( !accept( message ) ) return;
   const IpGenAddr any = anySource( message.group );
   if ( !concerns( { message.source, message.group } ) )
      return journal_.refused( noRoute, { message.source, message.group } );
   const AssertMetric metric{
      message.rptBit, message.preference, { message.metric }, sender };
   if ( !message.source.isUnspecified() ) {
      Key key{ message.group, message.source, intfId };
      bool changed = receive( key, metric );
      if ( changed || machines_.count( key ) != 0 ) return;
   }
   if ( routes_.find( { any, message.group } ) != nullptr )
      receive( Key{ message.group, any, intfId }, metric );
}

bool AssertEngine::receive( const Key& key, const AssertMetric& metric ) {
   if ( !routes_.hasRoom( key.routeKey() ) ) {
      journal_.refused( tableFull, key.routeKey() );
      return false;
   }
   bool changed = machine( key ).receive( metric );
   settle( key );
   return changed;
}

void AssertEngine::receive( IntfId intfId, const PimJoinPrune& message ) {
   if ( machines_.empty() ) return;
   for ( const JoinPruneGroup& group : message.groups ) {
      for ( const EncodedSource& source : group.joins ) {
         if ( source.rpt && !source.wildcard ) continue;
         Key key{ group.address,
                  source.wildcard ? anySource( group.address ) : source.address,
                  intfId };
         auto found = machines_.find( key );
         if ( found == machines_.end() ) continue;
         found->second->handleJoin();
         settle( key );
      }
   }
}

bool AssertEngine::mayWin( const RouteKey& key ) {
   const Mox::Ptr<const Routes::Route> route = routes_.find( key );
   return route != nullptr &&
          route->upJoinState() == Routing::Pim::SparseMode::upJoined &&
          !routes_.untried( key );
}

// RFC 7761, 4.2: a source is asserted for by its own tree's data, or else by the group's
// machine, where this router forwards it.
void AssertEngine::handleData( const RouteKey& key, IntfId intfId ) {
   if ( !mayWin( key ) ) {
      if ( early_.size() >= maxEarly ) early_.clear();
      early_[{ key.group, key.source, intfId }] = clock_.now();
   }
   handleData( Key{ key.group, key.source, intfId } );
   const Mox::Ptr<const Routes::Route> route = routes_.find( key );
   const Routes::Intf* own =
      route == nullptr ? nullptr : route->routeIntf( intfId );
   const bool shared =
      own == nullptr || ( own->inheritedOlistSgRpt() &&
                          ( !route->spTree() || routes_.untried( key ) ) );
   if ( shared ) handleData( Key{ key.group, anySource( key.group ), intfId } );
}

// What the kernel told of before counts now.
void AssertEngine::handleSourceTree( const RouteKey& key ) {
   if ( early_.empty() || !mayWin( key ) ) return;
   auto next = early_.lower_bound( { key.group, key.source, IntfId() } );
   while ( next != early_.end() && next->first.routeKey() == key ) {
      const auto [at, time] = *next;
      next = early_.erase( next );
      if ( clock_.now() - time < wrongDataTime ) handleData( at );
   }
}

void AssertEngine::handleData( const Key& key ) {
   if ( routes_.find( key.routeKey(), key.intfId ) == nullptr ) return;
   machine( key ).handleData();
   settle( key );
}

// The call may end states, so the keys are copied first.
template <class Call>
void AssertEngine::each( const std::function<bool( const Key& )>& wanted,
                         Call call ) {
   std::vector<Key> keys;
   for ( const auto& [key, machine] : machines_ ) {
      if ( wanted( key ) ) keys.push_back( key );
   }
   for ( const Key& key : keys ) {
      auto found = machines_.find( key );
      if ( found == machines_.end() ) continue;
      call( *found->second );
      settle( key );
   }
}

void AssertEngine::handleNeighborLost( IntfId intfId, const IpGenAddr& address ) {
   each( [&]( const Key& key ) { return key.intfId == intfId; },
         [&]( AssertMachine& it ) { it.handleNeighborLost( address ); } );
}

void AssertEngine::handleIntfGone( IntfId intfId ) {
   each( [&]( const Key& key ) { return key.intfId == intfId; },
         []( AssertMachine& it ) { it.end(); } );
}

void AssertEngine::review( const RouteKey& route ) {
   auto next = machines_.lower_bound( { route.group, route.source, IntfId() } );
   while ( next != machines_.end() && next->first.routeKey() == route ) {
      Key key = next->first;
      next->second->review();
      settle( key );
      next = machines_.upper_bound( key );
   }
}

// A winner's asserts, and a loser's new metric of the same winner, are no news.
void AssertEngine::tell( const Key& key,
                         const Routing::Pim::SparseMode::AssertInfo& before,
                         const Routing::Pim::SparseMode::AssertInfo& after ) {
   const AssertMetric& metric = after.assertWinnerMetric;
   if ( before.assertWinnerMetric.address == metric.address ) return;
   const auto kind = after.assertState == Routing::Pim::SparseMode::iAmAssertWinner
                        ? Published::assertWon
                     : after.assertState == Routing::Pim::SparseMode::iAmAssertLoser
                        ? Published::assertLost
                        : Published::assertGone;
   Published::Event event = journal_.eventOf( kind, key.routeKey(), key.intfId );
   if ( kind != Published::assertGone ) {
      event.address = metric.address;
      event.preference = metric.preference.value();
      event.metric = metric.metric.value;
   }
   journal_.tell( event );
}

AssertMachine& AssertEngine::machine( const Key& key ) {
   std::unique_ptr<AssertMachine>& machine = machines_[key];
   if ( machine == nullptr ) {
      AssertMachine::Hooks hooks;
      hooks.changed = [this, key]( const auto& before, const auto& after ) {
         if ( before.assertState != after.assertState ) count( key );
         if ( journal_.listens() ) tell( key, before, after );
         routes_.changed( { key.routeKey(), key.intfId }, { true, true } );
      };
      hooks.ended = [this, key] { settle( key ); };
      hooks.forwards = [this, key] { return !routes_.untried( key.routeKey() ); };
      if ( sender_.speaks() )
         hooks.send = [this, key]( const AssertMetric& metric ) {
            send( key, metric );
         };
      machine = std::make_unique<AssertMachine>(
         clock_, routes_.record( key.routeKey(), key.intfId ), config_,
         std::move( hooks ) );
   }
   return *machine;
}

void AssertEngine::count( const Key& key ) {
   namespace Sm = Routing::Pim::SparseMode;
   const Sm::AssertState is =
      routes_.find( key.routeKey(), key.intfId )->assertInfo().assertState;
   if ( is == Sm::iAmAssertWinner ) journal_.counters().elected( assertsWon );
   if ( is == Sm::iAmAssertLoser ) journal_.counters().elected( assertsLost );
}

// A record without a state loses its machine, and goes.
void AssertEngine::settle( const Key& key ) {
   auto found = machines_.find( key );
   if ( found == machines_.end() ) return;
   if ( !found->second->active() ) machines_.erase( found );
   routes_.update( key.routeKey(), key.intfId );
}

void AssertEngine::adopt( const KeptTimers& kept ) {
   for ( const auto& route : routes_.model().route() ) {
      for ( const Routes::Intf& intf : route.routeIntf() ) {
         if ( intf.assertInfo().assertState ==
              Routing::Pim::SparseMode::assertNoInfo )
            continue;
         machine( { route.key().group, route.key().source, intf.intfId() } )
            .adopt( kept( { route.key(), intf.intfId() } ).assertUntil );
      }
   }
}

void AssertEngine::tell( Published::Downstream& record ) const {
   const RouteKey& route = record.key.routeKey;
   auto found = machines_.find( { route.group, route.source, record.key.intfId } );
   if ( found != machines_.end() ) record.assertUntil = found->second->until();
}

}
