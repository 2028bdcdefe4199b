#include "apps/json/ChangeFeed.h"

#include <algorithm>
#include <tuple>

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Json = nlohmann::ordered_json;
using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

namespace {

// Joins are refreshed every minute: a changed time alone is no change.
void forgetTimes( RouteRecord& record ) {
   record.creationTime = 0;
}
void forgetTimes( IntfRecord& record ) {
   record.lastJoinReceived = record.lastRptPruneReceived = 0;
}

// An unreadable record is being written, and is notified afterwards.
template <class Table>
void refresh( const Table& table, const typename Table::Key& key,
              std::optional<typename Table::Value>& known ) {
   typename Table::Value record;
   const Brane::Lookup lookup = table.find( key, record );
   if ( lookup == Brane::lookupAbsent ) known.reset();
   if ( lookup != Brane::lookupFound ) return;
   forgetTimes( record );
   known = record;
}

// The differences between two entries, of which one may be null.
std::vector<Change::Field> differences( const Json& before, const Json& after ) {
   std::vector<Change::Field> fields;
   for ( const auto& [name, value] : before.items() ) {
      const Json now = after.is_null() ? Json() : after.value( name, Json() );
      if ( now != value ) fields.push_back( { name, value, now } );
   }
   for ( const auto& [name, value] : after.items() )
      if ( before.is_null() || !before.contains( name ) )
         fields.push_back( { name, Json(), value } );
   return fields;
}

// Adds the line unless nothing differs.
void tell( std::vector<Change>& changes, Change line, const Json& before,
           const Json& after ) {
   if ( before == after ) return;
   line.op = before.is_null() ? "add" : after.is_null() ? "delete" : "update";
   line.fields = differences( before, after );
   changes.push_back( std::move( line ) );
}

// Adds the changes between two states, which may be missing; `json` makes their
// entries.
template <class State, class ToJson>
void tellOf( std::vector<Change>& changes, const Change& line,
             const std::optional<State>& before, const std::optional<State>& after,
             ToJson json ) {
   tell( changes, line, before ? json( *before ) : Json(),
         after ? json( *after ) : Json() );
}

// The flags without a JSON member of their own.
Route::RouteFlags otherFlags( Route::RouteFlags flags ) {
   flags.spTreeIs( false );
   flags.msdpDiscoveredIs( false );
   return flags;
}

bool isWildcard( const RouteKey& key ) {
   return key.source.isUnspecified();
}

bool takes( const RouteFilter& filter, const RouteKey& key ) {
   if ( filter.kind == ( isWildcard( key ) ? "sg" : "wc" ) ) return false;
   return filter.matches( key );
}

bool takes( const RouteFilter& filter, const IntfRecord& record ) {
   if ( filter.forwarding && record.forward != *filter.forwarding ) return false;
   return filter.iface.empty() || record.key.intfId.name() == filter.iface;
}

bool takes( const RouteFilter& filter, const std::optional<IntfRecord>& record ) {
   return record && takes( filter, *record );
}

Json intfJson( const IntfRecord& record ) {
   Json json;
   addIntf( json, record );
   return json;
}

Json rptIntfJson( const IntfRecord& record ) {
   Json json;
   if ( record.rptState != Intf::rptNoInfo ) addRptIntf( json, record );
   return json;
}

}

ChangeFeed::ChangeFeed( const Mirror& mirror, bool isNew,
                        std::function<void()> something )
   : mirror_( mirror ),
     tables_( mirror.tables ),
     something_( std::move( something ) ),
     new_( isNew ),
     routeLag_( tables_->route() ),
     intfLag_( tables_->routeIntf() ) {
   tables_->route().visit( [this]( RouteRecord record ) {
      forgetTimes( record );
      new_ ? touch( record.key ) : void( known_[record.key].route.record = record );
      return true;
   } );
   tables_->routeIntf().visit( [this]( IntfRecord record ) {
      const auto& [key, intfId] = record.key;
      forgetTimes( record );
      new_ ? void( changed_[key].insert( intfId ) )
           : void( known_[key].intfs.emplace( intfId, record ) );
      return true;
   } );
   for ( auto& [key, known] : known_ ) derive( key, known );
   notifierIs( tables_.get() );
}

void ChangeFeed::Lag::restart() {
   const Brane::TableReader& reader = *table_.reader();
   instance_ = reader.instanceId();
   mark_ = known_ = reader.sequence();
   notified_ = markNotified_ = 0;
   settled_ = true;
}

// The journal up to the mark has been taken up if something was notified since, or
// if the time is up by which its bell must have rung.
bool ChangeFeed::Lag::skipped( double now ) {
   constexpr double kRung = 0.05;  // s
   const Brane::TableReader& reader = *table_.reader();
   if ( reader.instanceId() != instance_ ) restart();
   if ( !table_.quiesced() ) return false;
   const uint64_t head = reader.sequence();
   const bool drained = notified_ > markNotified_;
   const bool still = head == mark_ && now >= markTime_ + kRung;
   const uint64_t told = known_ + notified_;
   const bool behind = ( drained || still ) && mark_ > told;
   if ( behind ) known_ += mark_ - told;
   settled_ = settled_ || still;
   if ( head != mark_ || drained ) {
      mark_ = head;
      markTime_ = now;
      markNotified_ = notified_;
   }
   return behind;
}

void ChangeFeed::onRoute( const RouteKey& key ) {
   routeLag_.notified();
   touch( key );
   something_();
}

void ChangeFeed::onRouteIntf( const RouteIntfKey& key ) {
   intfLag_.notified();
   changed_[key.routeKey].insert( key.intfId );
   something_();
}

// A table that comes or goes with its VRF briefly has no bell, which does not mean
// that the agent ended. A table that is back has one, which the first look may have
// missed.
bool ChangeFeed::writerAlive() const {
   if ( mirror_.writerAlive() ) return true;
   return mirror_.gone() ? alive_ : mirror_.writerAlive();
}

void ChangeFeed::takeWriter( std::vector<Change>& changes, double now ) {
   const bool alive = writerAlive();
   if ( alive == alive_ ) return;
   alive_ = alive;
   changes.push_back( { alive ? "writer-back" : "writer-gone", {}, {}, {}, {} } );
   if ( alive ) quietUntil_ = now + restartPause;
   routeLag_.restart();
   intfLag_.restart();
}

void ChangeFeed::takeSkipped( std::vector<Change>& changes, double now ) {
   const bool routes = routeLag_.skipped( now ), intfs = intfLag_.skipped( now );
   if ( routes || intfs ) changes.push_back( { "sweep", {}, {}, {}, {} } );
}

void ChangeFeed::touchSources( const RouteKey& wildcard ) {
   const Route* route = mirror_.model->route( wildcard );
   auto known = known_.find( wildcard );
   const bool stood = known != known_.end() && known->second.route.record;
   const Incoming before = stood ? known->second.route.rptIncoming : Incoming();
   const Incoming now = route != nullptr ? rptIncomingOf( *route ) : Incoming();
   if ( stood == ( route != nullptr ) && before == now ) return;
   for ( auto each = known_.upper_bound( wildcard );
         each != known_.end() && each->first.group == wildcard.group; ++each )
      touch( each->first );
}

// A removed route's path stays known: its interfaces may go later.
void ChangeFeed::derive( const RouteKey& key, Known& known ) const {
   RouteState& state = known.route;
   const Route* route = state.record ? mirror_.model->route( key ) : nullptr;
   if ( route != nullptr ) {
      state.incoming = incomingOf( *route );
      state.rptIncoming = rptIncomingOf( *route );
   }
   state.rpt = state.record && !isWildcard( key ) &&
               ( state.record->upRptState != Sm::upRptNotJoined ||
                 std::any_of( known.intfs.begin(), known.intfs.end(),
                              []( const auto& intf ) {
                                 return intf.second.rptState != Intf::rptNoInfo;
                              } ) );
}

std::vector<ChangeFeed::IntfChange> ChangeFeed::refreshIntfs(
   const RouteKey& key, const std::set<Vantu::IntfId>& intfs, Known& known ) const {
   std::vector<IntfChange> changed;
   for ( Vantu::IntfId intfId : intfs ) {
      std::optional<IntfRecord> before;
      const auto found = known.intfs.find( intfId );
      if ( found != known.intfs.end() ) before = found->second;
      std::optional<IntfRecord> after = before;
      refresh( tables_->routeIntf(), { key, intfId }, after );
      known.intfs.erase( intfId );
      if ( after ) known.intfs.emplace( intfId, *after );
      if ( before != after ) changed.push_back( { intfId, before, after } );
   }
   return changed;
}

void ChangeFeed::takeKey( const RouteKey& key, const std::set<Vantu::IntfId>& intfs,
                          const RouteFilter& filter,
                          std::vector<Change>& changes ) {
   Known& known = known_[key];
   const auto comesIn = [&] {
      return takes( filter, key ) &&
             ( filter.iif.empty() ||
               known.route.incoming.intfId.name() == filter.iif );
   };
   const auto takesRoute = [&] {
      if ( !known.route.record || !comesIn() ) return false;
      if ( filter.iface.empty() && !filter.forwarding ) return true;
      return std::any_of(
         known.intfs.begin(), known.intfs.end(),
         [&]( const auto& intf ) { return takes( filter, intf.second ); } );
   };
   const RouteState before = known.route;
   const bool tookRoute = takesRoute(), cameIn = comesIn();
   const std::vector<IntfChange> changed = refreshIntfs( key, intfs, known );
   refresh( tables_->route(), key, known.route.record );
   derive( key, known );
   if ( tookRoute || takesRoute() ) tellRoute( changes, key, before, known.route );
   const bool comes = cameIn || comesIn();
   for ( const auto& [intfId, was, is] : changed ) {
      if ( !comes || ( !takes( filter, was ) && !takes( filter, is ) ) ) continue;
      tellOf( changes, { "", key, intfId, false, {} }, was, is, intfJson );
      if ( !isWildcard( key ) )
         tellOf( changes, { "", key, intfId, true, {} }, was, is, rptIntfJson );
   }
   if ( !known.route.record && known.intfs.empty() ) known_.erase( key );
}

// Skips the flags that have a member of their own: they are not reported twice.
void ChangeFeed::tellRoute( std::vector<Change>& changes, const RouteKey& key,
                            const RouteState& before, const RouteState& after ) {
   if ( before == after ) return;
   const bool flags = !before.record || !after.record ||
                      otherFlags( before.record->routeFlags ) !=
                         otherFlags( after.record->routeFlags );
   const auto entry = [&]( const RouteState& state ) {
      Json json;
      if ( !state.record ) return json;
      addRoute( json, *state.record, state.incoming );
      addRouteState( json, *state.record );
      if ( !flags ) json.erase( "pimsm-state:flags" );
      return json;
   };
   const auto rpt = []( const RouteState& state ) {
      Json json;
      if ( state.rpt ) addRpt( json, *state.record, state.rptIncoming );
      return json;
   };
   tell( changes, { "", key, {}, false, {} }, entry( before ), entry( after ) );
   tell( changes, { "", key, {}, true, {} }, rpt( before ), rpt( after ) );
}

std::vector<Change> ChangeFeed::take( const RouteFilter& filter, double now ) {
   std::vector<Change> changes;
   if ( gone_ ) return changes;
   if ( std::exchange( new_, false ) )
      changes.push_back( { "vrf-new", {}, {}, {}, {} } );
   if ( mirror_.removed() ) {
      gone_ = true;
      changed_.clear();
      changes.push_back( { "vrf-gone", {}, {}, {}, {} } );
      return changes;
   }
   takeWriter( changes, now );
   if ( !alive_ || now < quietUntil_ ) return changes;
   takeSkipped( changes, now );
   std::vector<RouteKey> wildcards;
   for ( const auto& [key, intfs] : changed_ )
      if ( isWildcard( key ) ) wildcards.push_back( key );
   for ( const RouteKey& key : wildcards ) touchSources( key );
   for ( const auto& [key, intfs] : std::exchange( changed_, {} ) )
      takeKey( key, intfs, filter, changes );
   return changes;
}

}
