#include "engine/UpstreamEngine.h"

#include <algorithm>
#include <set>

namespace Router {

namespace Sm = Routing::Pim::SparseMode;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// The winner of an assert that this router lost on the interface; null without one.
const IpGenAddr* assertWinner( const Sm::Route& route, IntfId intfId ) {
   const Sm::Intf* intf = route.routeIntf( intfId );
   if ( intf == nullptr || intf->assertInfo().assertState != Sm::iAmAssertLoser )
      return nullptr;
   return &intf->assertInfo().assertWinnerMetric.address;
}

bool viaAssert( const Sm::Route& route ) {
   return assertWinner( route, route.rpf().intfId ) != nullptr;
}

// A source on the link is asked for nothing; an RP there is a router.
bool onLink( const Sm::Route& route ) {
   return route.rpfAttached() && !route.wildCard();
}

}

// A neighbour that routes join through. Unspecified: the interface's routes whose
// neighbour is not known.
struct UpstreamEngine::Target : Deadline {
   Target( IntfId on, const IpGenAddr& of ) : intfId( on ), neighbor( of ) {}
   bool known() const { return !neighbor.isUnspecified(); }

   IntfId intfId;
   IpGenAddr neighbor;
   std::unordered_set<Record*> records;
   std::set<std::pair<double, Record*>> joins;  // by JT
   JoinPruneQueue queue;
   double lastJoins = 0.0;
};

struct UpstreamEngine::Record : Deadline {
   explicit Record( const RouteKey& of ) : key( of ) {}
   bool shared() const { return key.source.isUnspecified(); }

   RouteKey key;
   IpGenAddr rp;              // of a (*,G) route
   Target* target = nullptr;  // null: no path, or to this router's own link
   bool routed = false;       // the route exists
   bool viaAssert = false;
   bool joined = false;
   Sm::UpRptState rpt = Sm::upRptNotJoined;
   Target* rptTarget = nullptr;  // RPF'(S,G,rpt)
   bool rptAside = false;        // it is not RPF'(*,G)
   double joinDue = Deadlines::never;
   Target* former = nullptr;        // pruned when the path's change has ended
   std::unique_ptr<Record> backup;  // of the joined fast-reroute path
};

struct UpstreamEngine::Group {
   std::unique_ptr<Record> shared;
   std::map<IpGenAddr, std::unique_ptr<Record>> sources;
};

UpstreamEngine::UpstreamEngine( Routes& routes, Links& links,
                                const VrfConfig& config, const Sender& sender,
                                Mox::Clock& clock, Journal& journal )
   : routes_( routes ),
     links_( links ),
     config_( config ),
     sender_( sender ),
     clock_( clock ),
     journal_( journal ),
     joins_( clock,
             [this]( Deadline& due ) {
                handleJoinsDue( static_cast<Target&>( due ) );
             } ),
     overrides_( clock,
                 [this]( Deadline& due ) {
                    handleOverrideDue( static_cast<Record&>( due ) );
                 } ),
     retry_( clock, [this] { sendAgain(); } ) {}

UpstreamEngine::~UpstreamEngine() = default;

// ---- records and targets

UpstreamEngine::Record* UpstreamEngine::find( const RouteKey& key ) const {
   auto group = groups_.find( key.group );
   if ( group == groups_.end() ) return nullptr;
   if ( key.source.isUnspecified() ) return group->second.shared.get();
   auto found = group->second.sources.find( key.source );
   return found == group->second.sources.end() ? nullptr : found->second.get();
}

UpstreamEngine::Record& UpstreamEngine::make( const RouteKey& key ) {
   Group& group = groups_[key.group];
   std::unique_ptr<Record>& record =
      key.source.isUnspecified() ? group.shared : group.sources[key.source];
   if ( record != nullptr ) return *record;
   record = std::make_unique<Record>( key );
   ++size_;
   return *record;
}

void UpstreamEngine::erase( Record& record ) {
   overrides_.remove( record );
   if ( record.backup != nullptr ) moveTo( *record.backup, nullptr );
   moveTo( record, nullptr );
   --size_;
   const RouteKey key = record.key;
   auto group = groups_.find( key.group );
   if ( record.shared() ) {
      group->second.shared.reset();
   } else {
      group->second.sources.erase( key.source );
   }
   if ( group->second.shared == nullptr && group->second.sources.empty() )
      groups_.erase( group );
}

UpstreamEngine::Target* UpstreamEngine::target( IntfId intfId,
                                                const IpGenAddr& neighbor ) {
   std::unique_ptr<Target>& found = targets_[{ intfId, neighbor }];
   if ( found == nullptr ) found = std::make_unique<Target>( intfId, neighbor );
   return found.get();
}

void UpstreamEngine::moveTo( Record& record, Target* target ) {
   if ( record.target == target ) return;
   const double due = record.joinDue;
   setJoinDue( record, Deadlines::never );
   if ( record.target != nullptr ) record.target->records.erase( &record );
   record.target = target;
   if ( target != nullptr ) target->records.insert( &record );
   setJoinDue( record, due );
}

void UpstreamEngine::adopt( const LastJoins& lastJoins ) {
   if ( !sender_.speaks() ) return;
   std::vector<RouteKey> keys = Mox::keysOf( routes_.model().route() );
   std::stable_partition( keys.begin(), keys.end(), []( const RouteKey& key ) {
      return key.source.isUnspecified();
   } );
   for ( const RouteKey& key : keys ) {
      const Mox::Ptr<Route> route = routes_.find( key );
      Record& record = make( key );
      record.routed = true;
      record.rp = route->umh()->rp();
      record.viaAssert = viaAssert( *route );
      record.joined = route->upJoinState() == Sm::upJoined;
      moveTo( record, targetOf( *route ) );
      if ( !record.shared() ) record.rpt = route->upRptState();
      record.rptTarget = record.shared() ? nullptr : targetOfRpt( key );
      resume( record, lastJoins );
      if ( route->iifSwitching() )
         record.former =
            target( route->prevRpf().intfId, route->prevRpf().neighbor );
      Target* const backup =
         record.joined && !record.shared() ? backupOf( *route ) : nullptr;
      if ( backup == nullptr ) continue;
      makeBackup( record, *backup );
      resume( *record.backup, lastJoins );
   }
}

void UpstreamEngine::resume( Record& record, const LastJoins& lastJoins ) {
   Target* const to = record.target;
   if ( !record.joined || to == nullptr || !to->known() ) return;
   if ( to->lastJoins == 0.0 )
      to->lastJoins = lastJoins( to->intfId, to->neighbor );
   const double interval = links_.find( to->intfId )->config().joinPruneInterval;
   setJoinDue( record, std::max( to->lastJoins + interval, clock_.now() ) );
}

double UpstreamEngine::lastJoins( IntfId intfId, const IpGenAddr& neighbor ) const {
   auto found = targets_.find( { intfId, neighbor } );
   return found == targets_.end() ? 0.0 : found->second->lastJoins;
}

// ---- the neighbour of a path

Routing::Pim::Rpf UpstreamEngine::resolve( Route& route,
                                           const Topology::Path& path ) const {
   Routing::Pim::Rpf rpf = path.rpf;
   const Link* link = links_.find( rpf.intfId );
   bool resolved = true;
   const bool atRp =
      sender_.speaks() && route.wildCard() && isOwn( config_, route.umh()->rp() );
   if ( atRp ) {
      rpf = Routing::Pim::Rpf();
      rpf.intfId = registerIntf();
   } else if ( sender_.speaks() && !onLink( route ) && link != nullptr ) {
      const IpGenAddr* winner = assertWinner( route, rpf.intfId );
      const IpGenAddr neighbor =
         winner != nullptr ? *winner : link->neighbors().primaryOf( rpf.neighbor );
      resolved = !neighbor.isUnspecified();
      if ( resolved ) rpf.neighbor = neighbor;
   }
   route.nsfRpfResolvedIs( resolved );
   return rpf;
}

void UpstreamEngine::prepare( const RouteKey& key ) {
   if ( !sender_.speaks() ) return;
   const Record* record = find( key );
   const Mox::Ptr<Route> route = routes_.find( key );
   if ( record == nullptr || route == nullptr ) return;
   if ( !record->viaAssert && !viaAssert( *route ) ) return;
   const Journal::Handling handling( journal_, Published::byAssert );
   routes_.updatePath( key );
}

void UpstreamEngine::handleNeighbor( IntfId intfId, const IpGenAddr& address,
                                     NeighborEvent event ) {
   if ( !sender_.speaks() ) return;
   const auto any = IpGenAddr::unspecified( address.family() );
   std::vector<RouteKey> keys;
   for ( const IpGenAddr& each : { address, any } ) {
      auto found = targets_.find( { intfId, each } );
      if ( found == targets_.end() ) continue;
      for ( Record* record : found->second->records ) {
         keys.push_back( record->key );
         if ( event == NeighborEvent::restarted && record->joined )
            hasten( *record );
      }
   }
   // The path may stay as it was, and have a neighbour now.
   for ( const RouteKey& key : keys ) {
      routes_.updatePath( key );
      review( key );
   }
}

// ---- the machines

void UpstreamEngine::review( const RouteKey& key ) {
   if ( !sender_.speaks() ) return;
   const Mox::Ptr<Route> route = routes_.find( key );
   if ( route != nullptr ) {
      Record& record = make( key );
      record.routed = true;
      follow( record, *route );
      if ( record.shared() ) return;
      followBackup( record, *route );
      followRpt( record, *route );
      return;
   }
   if ( Record* record = find( key ) ) leave( *record );
}

UpstreamEngine::Target* UpstreamEngine::targetOf( const Route& route ) {
   const Routing::Pim::Rpf& rpf = route.rpf();
   if ( onLink( route ) || links_.find( rpf.intfId ) == nullptr ) return nullptr;
   return target( rpf.intfId, route.nsfRpfResolved()
                                 ? rpf.neighbor
                                 : anySource( route.key().group ) );
}

// RFC 7761, 4.5.4 and 4.5.5, but that the former neighbour is pruned only when data
// comes from the new one.
void UpstreamEngine::follow( Record& record, const Route& route ) {
   Target* const to = targetOf( route );
   record.rp = route.umh()->rp();
   Target* const from = record.target;
   const bool byAssert = viaAssert( route ) || record.viaAssert;
   const bool wasJoined =
      std::exchange( record.joined, route.upJoinState() == Sm::upJoined );
   record.viaAssert = viaAssert( route );
   if ( !record.joined ) {
      if ( wasJoined ) pruneAll( record );
      setJoinDue( record, Deadlines::never );
      return moveTo( record, to );
   }
   if ( !route.iifSwitching() ) pruneFormer( record, to );
   if ( wasJoined && from == to ) return;
   moveTo( record, to );
   const bool sameLink = from != nullptr && to != nullptr && from->known() &&
                         to->known() && from->intfId == to->intfId;
   if ( wasJoined && sameLink && byAssert ) return hasten( record );
   if ( wasJoined ) record.former = from;
   if ( !route.iifSwitching() ) pruneFormer( record, to );
   sendJoin( record, triggered );
}

// It stays joined if the path leads to it again; the join of a new backup comes later.
void UpstreamEngine::pruneFormer( Record& record, const Target* now ) {
   Target* const former = std::exchange( record.former, nullptr );
   if ( former != nullptr && former != now ) sendPrune( record, *former );
}

void UpstreamEngine::pruneAll( Record& record ) {
   pruneFormer( record, record.target );
   if ( record.target != nullptr ) sendPrune( record, *record.target );
}

// Null: the route has no fast-reroute path, or it is the main one.
UpstreamEngine::Target* UpstreamEngine::backupOf( const Route& route ) {
   const Routing::Pim::Rpf& rpf = route.rpfFrr();
   const Link* link = links_.find( rpf.intfId );
   if ( route.umhFrr() == nullptr || route.rpfFrrAttached() || link == nullptr )
      return nullptr;
   const IpGenAddr* winner = assertWinner( route, rpf.intfId );
   Target* const to = target(
      rpf.intfId,
      winner != nullptr ? *winner : link->neighbors().primaryOf( rpf.neighbor ) );
   return to == targetOf( route ) ? nullptr : to;
}

void UpstreamEngine::makeBackup( Record& record, Target& target ) {
   record.backup = std::make_unique<Record>( record.key );
   record.backup->joined = true;
   moveTo( *record.backup, &target );
}

// As follow(), for the fast-reroute path: joined while the main one is. A neighbour that
// has become the main one has its join from there.
void UpstreamEngine::followBackup( Record& record, const Route& route ) {
   Target* const to = record.joined ? backupOf( route ) : nullptr;
   Target* const from = record.backup == nullptr ? nullptr : record.backup->target;
   if ( from == to ) return;
   if ( from != nullptr ) {
      if ( from != record.target ) sendPrune( *record.backup, *from );
      moveTo( *record.backup, nullptr );
      record.backup.reset();
   }
   if ( to == nullptr ) return;
   makeBackup( record, *to );
   sendJoin( *record.backup, triggered );
}

// RFC 7761, 4.5.7.
void UpstreamEngine::followRpt( Record& record, const Route& route ) {
   const Sm::UpRptState before = std::exchange( record.rpt, route.upRptState() );
   Target* const to = targetOfRpt( record.key );
   const Record* shared =
      find( { anySource( record.key.group ), record.key.group } );
   const bool aside = shared != nullptr && to != shared->target;
   const bool returned = std::exchange( record.rptAside, aside ) && !aside;
   record.rptTarget = to;
   if ( record.rpt != Sm::upRptNotPruned ) overrides_.remove( record );
   if ( record.rpt == Sm::upRptPruned && before != Sm::upRptPruned )
      return sendRpt( record, false );
   if ( record.rpt == Sm::upRptNotPruned && before == Sm::upRptPruned )
      return sendRpt( record, true );
   if ( record.rpt == Sm::upRptNotPruned && before == Sm::upRptNotPruned &&
        returned )
      override( record );
}

// The winner of a lost assert for the source on the shared tree's interface, or the
// shared tree's neighbour; null: none.
UpstreamEngine::Target* UpstreamEngine::targetOfRpt( const RouteKey& key ) const {
   const Record* shared = find( { anySource( key.group ), key.group } );
   if ( shared == nullptr || shared->target == nullptr ) return nullptr;
   const Mox::Ptr<Route> route = routes_.find( key );
   if ( route == nullptr ) return shared->target;
   const IpGenAddr* winner = assertWinner( *route, shared->target->intfId );
   if ( winner == nullptr ) return shared->target;
   return const_cast<UpstreamEngine*>( this )->target( shared->target->intfId,
                                                       *winner );
}

// The route has gone, and with it all that it wanted.
void UpstreamEngine::leave( Record& record ) {
   record.routed = false;
   if ( record.joined ) pruneAll( record );
   record.joined = false;
   if ( record.backup != nullptr )
      sendPrune( *record.backup, *record.backup->target );
   const Record* shared =
      find( { anySource( record.key.group ), record.key.group } );
   if ( record.rpt == Sm::upRptPruned && shared != nullptr && shared->joined )
      sendRpt( record, true );
   erase( record );
}

// ---- times

void UpstreamEngine::setJoinDue( Record& record, double time ) {
   Target* const target = record.target;
   if ( target != nullptr && record.joinDue != Deadlines::never )
      target->joins.erase( { record.joinDue, &record } );
   record.joinDue = time;
   if ( target == nullptr || time == Deadlines::never ) return;
   target->joins.insert( { time, &record } );
   joins_.atMost( *target, target->joins.begin()->first );
}

double UpstreamEngine::overrideTime( const Target& target ) const {
   const Link* link = links_.find( target.intfId );
   return link == nullptr
             ? 0.0
             : sender_.randomTime( link->neighbors().overrideInterval() );
}

// "Decrease the Join Timer to t_override."
void UpstreamEngine::hasten( Record& record ) {
   if ( record.target == nullptr || !record.target->known() ) return;
   const double due = clock_.now() + overrideTime( *record.target );
   if ( due >= record.joinDue ) return;
   journal_.counters().joins( overriding );
   setJoinDue( record, due );
}

void UpstreamEngine::override( Record& record ) {
   if ( record.rptTarget == nullptr || !record.rptTarget->known() ) return;
   overrides_.atMost( record, clock_.now() + overrideTime( *record.rptTarget ) );
}

void UpstreamEngine::handleJoinsDue( Target& target ) {
   if ( target.joins.empty() ) return;
   if ( target.joins.begin()->first <= clock_.now() ) takeAlong( target );
   if ( !target.joins.empty() )
      joins_.atMost( target, target.joins.begin()->first );
}

// Without a route, another path or a prune of the group may have come meanwhile.
void UpstreamEngine::handleOverrideDue( Record& record ) {
   const Record* shared =
      find( { anySource( record.key.group ), record.key.group } );
   if ( shared != nullptr && shared->joined &&
        record.rptTarget == targetOfRpt( record.key ) ) {
      journal_.counters().joins( overriding );
      sendRpt( record, true );
   }
   if ( !record.routed ) erase( record );
}

// ---- sending

void UpstreamEngine::add( Target& to, Tree tree, const Record& record, bool join ) {
   to.queue.add( tree, record.key, join, record.rp );
   waiting_.insert( &to );
}

void UpstreamEngine::tell( Published::EventKind kind, const Record& record,
                           const Target& to ) const {
   Published::Event event = journal_.eventOf( kind, record.key, to.intfId );
   event.address = to.neighbor;
   journal_.tell( event );
}

// Nothing is sent to nobody; the join follows when the neighbour comes.
void UpstreamEngine::sendJoin( Record& record, JoinEvent why ) {
   if ( record.target == nullptr || !record.target->known() )
      return setJoinDue( record, Deadlines::never );
   journal_.counters().joins( why );
   if ( why != periodic ) tell( Published::joinSent, record, *record.target );
   add( *record.target, record.shared() ? Tree::shared : Tree::source, record,
        true );
   setJoinDue(
      record, clock_.now() +
                 links_.find( record.target->intfId )->config().joinPruneInterval );
}

// A neighbour that has gone needs no prune.
void UpstreamEngine::sendPrune( Record& record, Target& to ) {
   const Link* link = links_.find( to.intfId );
   if ( link == nullptr || !link->neighbors().has( to.neighbor ) ) return;
   journal_.counters().joins( triggered );
   tell( Published::pruneSent, record, to );
   add( to, record.shared() ? Tree::shared : Tree::source, record, false );
}

void UpstreamEngine::sendRpt( const Record& record, bool join ) {
   Target* const to = record.rptTarget;
   if ( to == nullptr || !to->known() ) return;
   journal_.counters().joins( triggered );
   tell( join ? Published::rptJoinSent : Published::rptPruneSent, record, *to );
   add( *to, Tree::sharedLessSource, record, join );
}

// The message goes to this router itself, for the others to see.
void UpstreamEngine::echoPrune( IntfId intfId, const RouteKey& key,
                                const IpGenAddr& rp ) {
   const Link* link = links_.find( intfId );
   if ( !sender_.speaks() || link == nullptr || link->neighbors().size() < 2 )
      return;
   Target* const to = target( intfId, link->address() );
   const bool shared = key.source.isUnspecified();
   to->queue.add( shared ? Tree::shared : Tree::source, key, false, rp );
   waiting_.insert( to );
}

// All joins of the neighbour that are due soon.
void UpstreamEngine::takeAlong( Target& target ) {
   const double until = clock_.now() + together;
   if ( !target.joins.empty() && target.joins.begin()->first < until )
      target.lastJoins = clock_.now();
   while ( !target.joins.empty() && target.joins.begin()->first < until )
      sendJoin( *target.joins.begin()->second, periodic );
}

void UpstreamEngine::flush() {
   for ( Target* target : std::exchange( waiting_, {} ) ) flush( *target );
   waiting_.clear();
}

void UpstreamEngine::flush( Target& target ) {
   Link* const link = links_.find( target.intfId );
   if ( link == nullptr ) return;
   takeAlong( target );
   for ( const IpGenAddr& group : target.queue.joinedGroups() )
      pruneBeside( target, group );
   const bool ipv4 = target.neighbor.family() == Vantu::AddressFamily::ipv4;
   const size_t mtu = std::max<size_t>( link->config().mtu, ipv4 ? 576 : 1280 );
   const JoinPruneQueue queue = std::exchange( target.queue, {} );
   bool left = true;
   const size_t leftOut = queue.encode(
      target.neighbor, link->joinHoldtime(), mtu - ( ipv4 ? 20 : 40 ),
      [&]( PimJoinPrune message ) {
         left = left && link->send( target.neighbor, std::move( message ) );
      } );
   journal_.counters().joins( prunesLeftOut, leftOut );
   if ( left ) return;
   target.queue = queue;
   unsent_.insert( &target );
   if ( !retry_.running() ) retry_.start( Sender::retry );
}

// What could not leave: a later word on the same state has replaced it.
void UpstreamEngine::sendAgain() {
   waiting_.merge( std::exchange( unsent_, {} ) );
}

// A (*,G) join asks for all sources: those that are not wanted go with it.
void UpstreamEngine::pruneBeside( Target& target, const IpGenAddr& group ) {
   for ( const auto& [source, record] : groups_[group].sources ) {
      const Mox::Ptr<Route> route = routes_.find( record->key );
      if ( route == nullptr ) continue;
      if ( route->pruneDesiredSgRpt() || targetOfRpt( record->key ) != &target )
         add( target, Tree::sharedLessSource, *record, false );
   }
}

// ---- what other routers say

void UpstreamEngine::receive( const Link& link, const PimJoinPrune& message ) {
   if ( !sender_.speaks() ) return;
   const IpGenAddr neighbor =
      link.neighbors().primaryOf( message.upstreamNeighbor );
   auto found = targets_.find( { link.intfId(), neighbor } );
   if ( found == targets_.end() || !found->second->known() ) return;
   // 65535 is for ever; no join is put off as long.
   const Seen seen{ link, *found->second, static_cast<double>( message.holdtime ) };
   for ( const JoinPruneGroup& group : message.groups ) {
      if ( groups_.count( group.address ) == 0 ) continue;
      for ( const EncodedSource& each : group.joins )
         receiveJoin( seen, group.address, each );
      for ( const EncodedSource& each : group.prunes )
         receivePrune( seen, group.address, each );
   }
}

void UpstreamEngine::receiveJoin( const Seen& seen, const IpGenAddr& group,
                                  const EncodedSource& source ) {
   const RouteKey key{ source.wildcard ? anySource( group ) : source.address,
                       group };
   Record* const record = find( key );
   if ( record == nullptr ) return;
   if ( source.rpt && !source.wildcard ) {
      if ( record->rptTarget != &seen.target ) return;
      overrides_.remove( *record );
      if ( !record->routed ) erase( *record );
   } else if ( Record* joined = joinedBy( record, seen.target ) ) {
      suppress( seen, *joined );
   }
}

// The record itself, or its backup, if it joins through the target; else null.
UpstreamEngine::Record* UpstreamEngine::joinedBy( Record* record,
                                                  const Target& target ) {
   if ( record == nullptr || !record->joined ) return nullptr;
   if ( record->target == &target ) return record;
   return joinedBy( record->backup.get(), target );
}

// "Increase the Join Timer to t_joinsuppress."
void UpstreamEngine::suppress( const Seen& seen, Record& record ) {
   if ( !seen.link.neighbors().joinSuppression() ) return;
   constexpr double kLeast = 1.1, kMost = 1.4;  // of the interval (RFC 7761, 4.11)
   const double interval = seen.link.config().joinPruneInterval;
   const double putOff =
      interval * kLeast + sender_.randomTime( interval * ( kMost - kLeast ) );
   const double due = clock_.now() + std::min( putOff, seen.holdtime );
   if ( due <= record.joinDue ) return;
   journal_.counters().joins( Router::suppressed );
   setJoinDue( record, due );
}

void UpstreamEngine::receivePrune( const Seen& seen, const IpGenAddr& group,
                                   const EncodedSource& source ) {
   Group& records = groups_.at( group );
   Record* const shared = records.shared.get();
   auto hastenIf = [&]( Record* record ) {
      if ( Record* joined = joinedBy( record, seen.target ) ) hasten( *joined );
   };
   if ( source.wildcard ) {
      hastenIf( shared );
      for ( const auto& [address, record] : records.sources )
         hastenIf( record.get() );
      return;
   }
   const RouteKey key{ source.address, group };
   hastenIf( find( key ) );
   overrideRpt( seen, key );
}

// Another router prunes the source from the shared tree on which this one has it.
void UpstreamEngine::overrideRpt( const Seen& seen, const RouteKey& key ) {
   const Record* shared = find( { anySource( key.group ), key.group } );
   if ( shared == nullptr || !shared->joined ) return;
   Record* record = find( key );
   if ( record == nullptr ) {
      if ( shared->target != &seen.target || refusalOfSource( key.source ) ) return;
      if ( size_ >= 2 * size_t( routes_.model().maxRoutes() ) )
         return journal_.refused( tableFull, key );
      record = &make( key );
      // Without a state of its own it shares the (*,G) one.
      record->rpt = Sm::upRptNotPruned;
      record->rptTarget = shared->target;
   }
   if ( record->rpt == Sm::upRptNotPruned && record->rptTarget == &seen.target )
      override( *record );
}

}
