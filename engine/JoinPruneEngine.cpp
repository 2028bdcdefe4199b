#include "engine/JoinPruneEngine.h"

#include <algorithm>

namespace Router {

using Vantu::IpGenAddr;

namespace {

constexpr uint16_t kForever = 0xffff;

}

// The parts of a record that others may see.
struct JoinPruneEngine::State {
   Intf::JoinState join;
   Intf::RptState rpt;
   Published::Downstream timers;

   static State of( const Record& record ) {
      State out{ record.intf->joinState(), record.intf->rptState(), {} };
      record.join.tell( out.timers );
      record.rptPrune.tell( out.timers );
      return out;
   }
   bool joined() const { return join != Intf::noInfo; }
   bool pruned() const { return rpt != Intf::rptNoInfo; }
   bool sameStates( const State& other ) const {
      return join == other.join && rpt == other.rpt;
   }
};

JoinPruneEngine::JoinPruneEngine( Routes& routes, Mox::Clock& clock,
                                  const Topology& topology,
                                  const GroupPolicy* policy, Journal& journal,
                                  Echo echo )
   : routes_( routes ),
     topology_( topology ),
     policy_( policy ),
     journal_( journal ),
     echo_( std::move( echo ) ),
     deadlines_( clock, [this]( Deadline& due ) {
        handleDue( static_cast<Record&>( due ) );
     } ) {}

// The record may go with its route, so the echo comes from its last moment.
void JoinPruneEngine::handleDue( Record& record ) {
   act( record, [this]( Record& it, double now ) {
      const bool pruned =
         it.intf->joinState() == Intf::prunePending && it.join.due() <= now;
      it.join.handleTime( *it.intf, now );
      it.rptPrune.handleTime( *it.intf, now );
      if ( pruned )
         echo_( it.intf->intfId(), *it.route, it.intf->parentRoute()->umh()->rp() );
   } );
}

JoinPruneEngine::~JoinPruneEngine() = default;

void JoinPruneEngine::receive( Vantu::IntfId intfId, const Neighbors& neighbors,
                               const PimJoinPrune& message ) {
   Message common{ intfId,
                   message.holdtime == kForever ? Timer::never : message.holdtime,
                   neighbors.prunePendingTime(), senderNumber() };
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
      eachRptPrune( group.address, intfId, []( Record& it, double ) {
         it.rptPrune.endOfMessage( *it.intf );
      } );
   }
}

bool JoinPruneEngine::acceptGroup( const JoinPruneGroup& group ) {
   const Journal::Ending ending( journal_, group.joins.empty() );
   if ( !journal_.accepted( refusalOfGroup( group.address ),
                            { anySource( group.address ), group.address } ) )
      return false;
   if ( group.maskLength == hostMask( group.address ) ) return true;
   journal_.refused( partialMask, { anySource( group.address ), group.address } );
   return false;
}

bool JoinPruneEngine::acceptSource( const EncodedSource& source,
                                    const IpGenAddr& group ) {
   std::optional<Refusal> refusal = refusalOfSource( source.address );
   if ( source.maskLength != hostMask( group ) ) {
      refusal = partialMask;
   } else if ( !refusal && source.wildcard && !source.rpt ) {
      refusal = badFlags;
   }
   return journal_.accepted( refusal, { source.address, group } );
}

void JoinPruneEngine::receiveJoin( const Message& message, const IpGenAddr& group,
                                   const EncodedSource& source ) {
   if ( !acceptSource( source, group ) ) return;
   if ( source.wildcard ) return receiveWcJoin( message, group, source.address );
   const RouteIntfKey key{ { source.address, group }, message.intfId };
   if ( source.rpt ) {
      if ( Record* record = find( key ) )
         act( *record, []( Record& it, double ) {
            it.rptPrune.receiveRptJoin( *it.intf );
         } );
      return;
   }
   if ( Record* record = make( key ) )
      act( *record, [&]( Record& it, double now ) {
         it.from = message.from;
         it.join.receiveJoin( *it.intf, now, message.holdtime );
      } );
}

// RFC 4607, 4: a source-specific group has no shared tree. RFC 3956, 3: nor has one whose
// address should name an RP and does not.
bool JoinPruneEngine::refuseSharedTree( const IpGenAddr& group ) {
   return policy_ != nullptr &&
          !journal_.accepted( policy_->refusalOfShared( group ),
                              { anySource( group ), group } );
}

// RFC 7761, 4.5.1: a join towards an RP other than ours is dropped. Without an RP
// of our own we take the message's.
void JoinPruneEngine::receiveWcJoin( const Message& message, const IpGenAddr& group,
                                     const IpGenAddr& rp ) {
   if ( refuseSharedTree( group ) ) return;
   const IpGenAddr ours = topology_.rpOf( group );
   if ( !ours.isUnspecified() && ours != rp )
      return journal_.refused( rpMismatch, { anySource( group ), group } );
   Record* record = make( { { anySource( group ), group }, message.intfId }, rp );
   if ( record == nullptr ) return;
   // After a restart the tables hold the path to a joined RP, not the RP.
   if ( ours.isUnspecified() ) routes_.route( record->key().routeKey, rp );
   act( *record, [&]( Record& it, double now ) {
      it.from = message.from;
      it.join.receiveJoin( *it.intf, now, message.holdtime );
   } );
   eachRptPrune( group, message.intfId, []( Record& it, double ) {
      it.rptPrune.receiveWcJoin( *it.intf );
   } );
}

// A (*,G) prune counts regardless of its RP (RFC 7761, 4.5.1).
void JoinPruneEngine::receivePrune( const Message& message, const IpGenAddr& group,
                                    const EncodedSource& source ) {
   const Journal::Ending ending( journal_ );
   if ( !acceptSource( source, group ) ) return;
   const IpGenAddr of = source.wildcard ? anySource( group ) : source.address;
   const RouteIntfKey key{ { of, group }, message.intfId };
   if ( source.rpt && !source.wildcard ) {
      if ( refuseSharedTree( group ) ) return;
      if ( Record* record = make( key ) )
         act( *record, [&]( Record& it, double now ) {
            it.rptPrune.receiveRptPrune( *it.intf, now, message.holdtime,
                                         message.pendingTime );
         } );
      return;
   }
   if ( Record* record = find( key ) )
      act( *record, [&]( Record& it, double now ) {
         it.join.receivePrune( *it.intf, now, message.pendingTime );
      } );
}

JoinPruneEngine::OfRoute::const_iterator JoinPruneEngine::placeOf(
   const OfRoute& records, Vantu::IntfId intfId ) {
   return std::lower_bound( records.begin(), records.end(), intfId.hash(),
                            []( const auto& record, size_t hash ) {
                               return record.first.hash() < hash;
                            } );
}

JoinPruneEngine::Record* JoinPruneEngine::find( const RouteIntfKey& key ) const {
   auto route = records_.find( key.routeKey );
   if ( route == records_.end() ) return nullptr;
   auto found = placeOf( route->second, key.intfId );
   const bool there = found != route->second.end() && found->first == key.intfId;
   return there ? found->second.get() : nullptr;
}

// Returns null without room for the route, and counts that.
JoinPruneEngine::Record* JoinPruneEngine::make( const RouteIntfKey& key,
                                                const IpGenAddr& rp ) {
   auto route = records_.find( key.routeKey );
   if ( route == records_.end() ) {
      if ( !routes_.hasRoom( key.routeKey ) ) {
         journal_.refused( tableFull, key.routeKey );
         return nullptr;
      }
      route = records_.try_emplace( key.routeKey ).first;
   }
   OfRoute& records = route->second;
   const auto place = placeOf( records, key.intfId );
   if ( place != records.end() && place->first == key.intfId )
      return place->second.get();
   auto record = std::make_unique<Record>(
      route->first, routes_.record( key.routeKey, key.intfId, rp ) );
   return records.emplace( place, key.intfId, std::move( record ) )->second.get();
}

void JoinPruneEngine::erase( const RouteIntfKey& key ) {
   auto route = records_.find( key.routeKey );
   route->second.erase( placeOf( route->second, key.intfId ) );
   if ( route->second.empty() ) records_.erase( route );
}

// Every change of a record is made and reported here. A record without a state is
// removed.
template <class Act>
void JoinPruneEngine::act( Record& record, Act change ) {
   const State before = State::of( record );
   change( record, deadlines_.now() );
   const State after = State::of( record );
   const RouteIntfKey key = record.key();
   if ( journal_.listens() && !after.sameStates( before ) )
      tell( key, record, before, after );
   if ( record.indexed != after.pruned() ) indexRptPrune( record, after.pruned() );
   routes_.changed(
      key, { !after.sameStates( before ), after.timers != before.timers } );
   const bool ended = !after.joined() && !after.pruned();
   if ( ended ) {
      deadlines_.remove( record );
      erase( key );
   } else {
      deadlines_.atMost( record,
                         std::min( record.join.due(), record.rptPrune.due() ) );
   }
   // A record on which no state began is reported, too: its route was made for it.
   if ( ended || after.joined() != before.joined() ||
        after.pruned() != before.pruned() )
      routes_.update( key.routeKey, key.intfId );
}

// Neighbours come and go; a number is never given twice.
uint32_t JoinPruneEngine::senderNumber() {
   if ( !journal_.listens() || senders_.size() > maxSenders ) return 0;
   const auto [found, isNew] = numbers_.try_emplace(
      journal_.address(), static_cast<uint32_t>( senders_.size() ) );
   if ( isNew ) senders_.push_back( journal_.address() );
   return found->second;
}

void JoinPruneEngine::tell( const RouteIntfKey& key, const Record& record,
                            const State& before, const State& after ) {
   if ( before.join != after.join ) {
      const bool gone = !after.joined();
      auto event = journal_.eventOf( gone ? Published::joinGone
                                     : after.join == Intf::prunePending
                                        ? Published::joinPruned
                                        : Published::joinCame,
                                     key.routeKey, key.intfId );
      const bool pruned = gone && before.join == Intf::prunePending &&
                          event.cause == Published::byExpiry;
      if ( pruned ) event.cause = Published::byPrune;
      if ( gone ) event.address = senders_[record.from];
      journal_.tell( event );
   }
   if ( before.pruned() != after.pruned() )
      journal_.tell(
         after.pruned() ? Published::rptPruneCame : Published::rptPruneGone,
         key.routeKey, key.intfId );
}

void JoinPruneEngine::indexRptPrune( Record& record, bool pruned ) {
   record.indexed = pruned;
   const auto [route, intfId] = record.key();
   const RouteIntfKey shared{ { anySource( route.group ), route.group }, intfId };
   if ( pruned ) {
      rptPruned_[shared].insert( route.source );
      return;
   }
   auto found = rptPruned_.find( shared );
   found->second.erase( route.source );
   if ( found->second.empty() ) rptPruned_.erase( found );
}

// The call may end prunes, so their sources are copied first.
template <class Act>
void JoinPruneEngine::eachRptPrune( const IpGenAddr& group, Vantu::IntfId intfId,
                                    Act change ) {
   if ( rptPruned_.empty() ) return;
   auto found = rptPruned_.find( { { anySource( group ), group }, intfId } );
   if ( found == rptPruned_.end() ) return;
   const std::vector<IpGenAddr> sources( found->second.begin(),
                                         found->second.end() );
   for ( const IpGenAddr& source : sources ) {
      if ( Record* record = find( { { source, group }, intfId } ) )
         act( *record, change );
   }
}

// Calls `change` for the records whose keys meet the condition.
template <class Condition, class Act>
void JoinPruneEngine::eachOf( Condition condition, Act change ) {
   std::vector<RouteIntfKey> keys;
   for ( const auto& [route, records] : records_ ) {
      for ( const auto& [intfId, record] : records ) {
         const RouteIntfKey key{ route, intfId };
         if ( condition( key ) ) keys.push_back( key );
      }
   }
   for ( const RouteIntfKey& key : keys ) {
      if ( Record* record = find( key ) ) act( *record, change );
   }
}

void JoinPruneEngine::endUnshared() {
   if ( policy_ == nullptr ) return;
   eachOf(
      [&]( const RouteIntfKey& key ) {
         return policy_->refusalOfShared( key.routeKey.group ).has_value();
      },
      []( Record& it, double ) {
         if ( it.route->source.isUnspecified() ) it.join.end( *it.intf );
         it.rptPrune.end( *it.intf );
      } );
}

// A loser has the better metric where it may not assert, having lost the group's assert:
// both would forward until the join expires.
void JoinPruneEngine::handleAssert( const RouteIntfKey& key ) {
   Record* const record = find( key );
   if ( record == nullptr || key.routeKey.source.isUnspecified() ) return;
   const bool lost = record->intf->assertInfo().assertState ==
                     Routing::Pim::SparseMode::iAmAssertLoser;
   if ( lost && record->intf->forward() && !record->intf->lostAssertSg() )
      act( *record, []( Record& it, double ) { it.join.end( *it.intf ); } );
}

void JoinPruneEngine::handleIntfGone( Vantu::IntfId intfId ) {
   eachOf( [&]( const RouteIntfKey& key ) { return key.intfId == intfId; },
           []( Record& it, double ) {
              it.join.end( *it.intf );
              it.rptPrune.end( *it.intf );
           } );
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
      const Published::Downstream timers = kept( key );
      Record* record = make( key );
      if ( record == nullptr ) continue;
      act( *record, [&]( Record& it, double now ) {
         if ( it.intf->joinState() != Intf::noInfo )
            it.join.adopt( *it.intf, now, timers );
         if ( it.intf->rptState() != Intf::rptNoInfo )
            it.rptPrune.adopt( *it.intf, now, timers );
      } );
   }
   endUnshared();
}

void JoinPruneEngine::tell( Published::Downstream& record ) const {
   const Record* found = find( record.key );
   if ( found == nullptr ) return;
   found->join.tell( record );
   found->rptPrune.tell( record );
}

}
