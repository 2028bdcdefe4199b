#include "apps/show/ChangeFeed.h"

#include <algorithm>

#include "apps/show/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Json = nlohmann::ordered_json;
using Fields = std::vector<std::pair<const char*, Json>>;
using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

namespace {

Json addressJson( const Vantu::IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

Json rpfJson( const Rpf& rpf ) {
   return rpf == Rpf() ? Json() : Json( rpfText( rpf, false ) );
}

Fields fieldsOf( const Sm::Brane::Route& record ) {
   const bool resolved = record.rpf != Rpf();
   Fields fields;
   fields.emplace_back( "is-spt", record.routeFlags.spTree() );
   fields.emplace_back(
      "incoming-interface",
      resolved ? Json( std::string( record.rpf.intfId.name() ) ) : Json() );
   fields.emplace_back( "rpf-neighbor",
                        resolved ? addressJson( record.rpf.neighbor ) : Json() );
   fields.emplace_back( "pimsm-state:fast-reroute-rpf", rpfJson( record.rpfFrr ) );
   fields.emplace_back( "pimsm-state:upstream-join-state",
                        stringValue( record.upJoinState ) );
   fields.emplace_back( "pimsm-state:upstream-rpt-state",
                        stringValue( record.upRptState ) );
   fields.emplace_back( "pimsm-state:switch-state",
                        stringValue( record.iifSwitchState ) );
   // The SPT bit has a member of its own.
   auto flags = record.routeFlags;
   flags.spTreeIs( false );
   fields.emplace_back( "pimsm-state:flag-bits", flags.value() );
   return fields;
}

Fields fieldsOf( const Sm::Brane::Intf& record ) {
   const bool asserted = record.assertInfo.assertState != Sm::assertNoInfo;
   Fields fields;
   fields.emplace_back( "forwarding", record.forward );
   fields.emplace_back( "fast-forwarding", record.fastForward );
   fields.emplace_back( "join-state", stringValue( record.joinState ) );
   fields.emplace_back( "rpt-state", stringValue( record.rptState ) );
   fields.emplace_back( "assert-state",
                        stringValue( record.assertInfo.assertState ) );
   fields.emplace_back(
      "assert-winner",
      asserted ? Json( valueToStrep( record.assertInfo.assertWinnerMetric ) )
               : Json() );
   fields.emplace_back( "local-receiver-include", record.localReceiverInclude );
   fields.emplace_back( "local-receiver-exclude", record.localReceiverExclude );
   fields.emplace_back( "to-be-deleted", record.toBeDeleted );
   return fields;
}

// Either may be null. Times alone are no change: nothing marks them either.
template <class Record>
std::vector<Change::Field> differences( const Record* before,
                                        const Record* after ) {
   const Fields old = before != nullptr ? fieldsOf( *before ) : Fields();
   const Fields now = after != nullptr ? fieldsOf( *after ) : Fields();
   std::vector<Change::Field> fields;
   for ( size_t i = 0; i < std::max( old.size(), now.size() ); ++i ) {
      Change::Field field{ i < old.size() ? old[i].first : now[i].first,
                           i < old.size() ? old[i].second : Json(),
                           i < now.size() ? now[i].second : Json() };
      if ( field.before != field.after ) fields.push_back( std::move( field ) );
   }
   return fields;
}

// Brings what is known up to date. False: nothing to tell.
template <class Table, class Known>
bool compare( const Table& table, Known& known, const typename Known::key_type& key,
              Change& change ) {
   typename Known::mapped_type record;
   const Brane::Lookup lookup = table.find( key, record );
   if ( lookup == Brane::lookupBusy || lookup == Brane::lookupDamaged )
      return false;
   const bool stands = lookup == Brane::lookupFound;
   auto found = known.find( key );
   const auto* before = found != known.end() ? &found->second : nullptr;
   change.op = before == nullptr ? "add" : stands ? "update" : "delete";
   change.fields = differences( before, stands ? &record : nullptr );
   const bool told = stands ? !change.fields.empty() : before != nullptr;
   if ( stands ) {
      known.insert_or_assign( key, record );
   } else if ( before != nullptr ) {
      known.erase( found );
   }
   return told;
}

}

ChangeFeed::ChangeFeed( const Mirror& mirror, std::function<void()> something )
   : mirror_( mirror ),
     tables_( mirror.tables ),
     something_( std::move( something ) ),
     alive_( mirror.writerAlive() ),
     routeLag_( tables_->route() ),
     intfLag_( tables_->routeIntf() ) {
   tables_->route().visit( nullptr, [this]( const RouteRecord& record ) {
      knownRoutes_.emplace( record.key, record );
      return true;
   } );
   tables_->routeIntf().visit( nullptr, [this]( const IntfRecord& record ) {
      knownIntfs_.emplace( record.key, record );
      return true;
   } );
   notifierIs( tables_.get() );
}

void ChangeFeed::Lag::restart() {
   const Brane::TableReader& reader = *table_.reader();
   instance_ = reader.instanceId();
   mark_ = known_ = reader.sequence();
   notified_ = markNotified_ = 0;
   settled_ = true;
}

// What stood in the journal at the mark has been taken up if something was notified
// since, or if nothing has happened for so long that its bell must have rung.
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
   routes_.insert( key );
   something_();
}

void ChangeFeed::onRouteIntf( const RouteIntfKey& key ) {
   intfLag_.notified();
   intfs_.insert( key );
   something_();
}

void ChangeFeed::takeWriter( std::vector<Change>& changes, double now ) {
   const bool alive = mirror_.writerAlive();
   if ( alive == alive_ ) return;
   alive_ = alive;
   changes.push_back( { alive ? "writer-back" : "writer-gone", {}, {}, {} } );
   if ( alive ) quietUntil_ = now + restartPause;
   routeLag_.restart();
   intfLag_.restart();
}

void ChangeFeed::takeSkipped( std::vector<Change>& changes, double now ) {
   const bool routes = routeLag_.skipped( now ), intfs = intfLag_.skipped( now );
   if ( routes || intfs ) changes.push_back( { "sweep", {}, {}, {} } );
}

// By the records, as Published::incomingIntf by the model.
bool ChangeFeed::comesIn( const RouteKey& key, const RouteFilter& filter ) const {
   if ( filter.iif.empty() ) return true;
   auto route = knownRoutes_.find( key );
   if ( route == knownRoutes_.end() ) return false;
   if ( !route->second.routeFlags.spTree() && !route->second.rpfAttached ) {
      auto shared = knownRoutes_.find(
         { Vantu::IpGenAddr::unspecified( key.group.family() ), key.group } );
      if ( shared != knownRoutes_.end() ) route = shared;
   }
   return route->second.rpf.intfId.name() == filter.iif;
}

void ChangeFeed::takeRoute( const RouteKey& key, const RouteFilter& filter,
                            std::vector<Change>& changes ) {
   Change change{ "", key, {}, {} };
   if ( !compare( tables_->route(), knownRoutes_, key, change ) ) return;
   const bool wildcard = key.source.isUnspecified();
   if ( !filter.matches( key ) || filter.forwarding || !filter.iface.empty() ||
        ( filter.kind == "wc" && !wildcard ) ||
        ( filter.kind == "sg" && wildcard ) )
      return;
   if ( !comesIn( key, filter ) ) return;
   changes.push_back( std::move( change ) );
}

void ChangeFeed::takeIntf( const RouteIntfKey& key, const RouteFilter& filter,
                           std::vector<Change>& changes ) {
   Change change{ "", key.routeKey, key.intfId, {} };
   if ( !compare( tables_->routeIntf(), knownIntfs_, key, change ) ) return;
   const bool wildcard = key.routeKey.source.isUnspecified();
   if ( !filter.matches( key.routeKey ) || ( filter.kind == "wc" && !wildcard ) ||
        ( filter.kind == "sg" && wildcard ) ||
        ( !filter.iface.empty() && key.intfId.name() != filter.iface ) )
      return;
   if ( !comesIn( key.routeKey, filter ) ) return;
   auto now = knownIntfs_.find( key );
   if ( filter.forwarding && now != knownIntfs_.end() &&
        now->second.forward != *filter.forwarding )
      return;
   changes.push_back( std::move( change ) );
}

std::vector<Change> ChangeFeed::take( const RouteFilter& filter, double now ) {
   std::vector<Change> changes;
   takeWriter( changes, now );
   if ( !alive_ || now < quietUntil_ ) return changes;
   takeSkipped( changes, now );
   for ( const RouteKey& key : std::exchange( routes_, {} ) )
      takeRoute( key, filter, changes );
   for ( const RouteIntfKey& key : std::exchange( intfs_, {} ) )
      takeIntf( key, filter, changes );
   return changes;
}

}
