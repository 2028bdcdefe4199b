#include "export/RouteBraneWriterSm.h"

#include <algorithm>

#include "export/Conversion.h"
#include "export/detail/ModelFetch.h"
#include "export/detail/MoxRoute.h"
#include "platform/trace/Probe.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_TRACE_FACILITY( writerTrace, "Pimsm::RouteBraneWriter" )

MOX_ENTITY_TYPE( RouteBraneWriterSm, PIMSM_ROUTE_WRITER_ATTRIBUTES )

namespace {

constexpr size_t kTogether = 32;  // records written at once

}

class RouteBraneWriterSm::MoxStatus : public SparseMode::Status::NotifieeConst {
 public:
   explicit MoxStatus( RouteBraneWriterSm& writer ) : writer_( writer ) {
      notifierIs( writer.status().get() );
   }
   void onRoute( const RouteKey& key ) override {
      Mox::Pin pin( &writer_ );
      writer_.handleRoute( key );
   }
   void onInitialized() override { writer_.doMaybeUpdateReviewTimer(); }

 private:
   RouteBraneWriterSm& writer_;
};

class RouteBraneWriterSm::MoxClock : public Mox::Clock::Notifiee {
 public:
   explicit MoxClock( RouteBraneWriterSm& writer )
      : Notifiee( writer.clock() ), writer_( writer ) {}
   void onTime() override {
      Mox::Pin pin( &writer_ );
      writer_.reviewTimer_->handleWakeup();
      writer_.doReview();
   }

 private:
   RouteBraneWriterSm& writer_;
};

class RouteBraneWriterSm::Retry : public Mox::Clock::Notifiee {
 public:
   explicit Retry( RouteBraneWriterSm& writer )
      : Notifiee( writer.clock() ), writer_( writer ) {}
   void onTime() override {
      Mox::Pin pin( &writer_ );
      writer_.markRefusedRoutes();
      writer_.markRefusedRouteIntfs();
      writer_.doMaybeUpdateReviewTimer();
   }

 private:
   RouteBraneWriterSm& writer_;
};

// Deliberately not for interfaces: they wait for a review caused by a route.
class RouteBraneWriterSm::MoxChangeSet : public RouteChangeSet::NotifieeConst {
 public:
   explicit MoxChangeSet( RouteBraneWriterSm& writer ) : writer_( writer ) {}
   void onRoute( const RouteKey& ) override { writer_.doMaybeUpdateReviewTimer(); }

 private:
   RouteBraneWriterSm& writer_;
};

RouteBraneWriterSm::RouteBraneWriterSm( ModelStatusPtr status,
                                        BraneStatusPtr braneStatus,
                                        Mox::Clock* clock )
   : status_( std::move( status ) ),
     braneStatus_( std::move( braneStatus ) ),
     clock_( clock ),
     moxChangeSet_( std::make_unique<MoxChangeSet>( *this ) ) {
   handleChangeSet();
   moxStatus_ = std::make_unique<MoxStatus>( *this );
   moxClock_ = std::make_unique<MoxClock>( *this );
   retry_ = std::make_unique<Retry>( *this );
   for ( const RouteKey& key : Mox::keysOf( status_->route() ) ) handleRoute( key );
   handleInitialized();
}

RouteBraneWriterSm::~RouteBraneWriterSm() = default;

void RouteBraneWriterSm::handleInitialized() {
   MOX_TRACE( writerTrace, 8, "handleInitialized" );
   constexpr double kFillInterval = 1.0;  // s
   constexpr uint32_t kMaxCredits = 4;
   reviewTimer_.emplace( *moxClock_, kFillInterval, kMaxCredits,
                         static_cast<float>( minDelay() ),
                         static_cast<float>( maxDelay() ) );
   reviewChangeSet_ = routeChangeSetFactory();
   initializedIs( true );
   doMaybeUpdateReviewTimer();
}

void RouteBraneWriterSm::handleChangeSet() {
   changeSet_ = routeChangeSetFactory();
   moxChangeSet_->notifierIs( changeSet_.get() );
}

const RouteBraneWriterSm::MoxRoute* RouteBraneWriterSm::route(
   const RouteKey& key ) const {
   auto found = route_.find( key );
   return found == route_.end() ? nullptr : found->second.get();
}

// Another object may stand under a known key: the reactor is made anew.
void RouteBraneWriterSm::handleRoute( const RouteKey& key ) {
   const SparseMode::Route* route = status_->route( key );
   auto found = route_.find( key );
   if ( found != route_.end() ) {
      if ( found->second->notifier() == route ) return;
      found->second->handleRemoved();
      route_.erase( found );
   }
   if ( route == nullptr ) return;
   route_.emplace( key, std::make_unique<MoxRoute>( *this, *route ) );
}

void RouteBraneWriterSm::doMaybeUpdateReviewTimer() {
   if ( !initialized() || !status_->initialized() ) return;
   if ( reviewTimer_->reviewPending() || changeSet_->empty() ) return;
   reviewTimer_->doUpdateNextReview();
}

void RouteBraneWriterSm::doReview() {
   if ( !initialized() || !status_->initialized() ) return;
   if ( reviewChangeSet_->empty() ) {
      reviewChangeSet_ = changeSet_;
      handleChangeSet();
      MOX_TRACE( writerTrace, 3, "doReview(), Starting review" );
   } else {
      MOX_TRACE( writerTrace, 3, "doReview(), Resuming review" );
   }
   slicesInc( 1 );
   reviewStopTimeIs( clock_->now() + reviewQuantum() );
   doReviewRoutes();
   doReviewRouteIntfs();
   if ( reviewChangeSet_->empty() ) {
      MOX_TRACE( writerTrace, 3, "doReview(), Finished review" );
      reviewsInc( 1 );
      MOX_PROBE( review, reviews(), slices() );
      reviewTimer_->lastReviewTimeIs( clock_->now() );
      doMaybeUpdateReviewTimer();
      return;
   }
   MOX_TRACE( writerTrace, 3,
              "doReview(), Suspending review, pending routes:"
                 << reviewChangeSet_->route().size()
                 << ", pending intfs:" << reviewChangeSet_->routeIntf().size() );
   moxClock_->wakeupTimeIs( clock_->now() );
}

bool RouteBraneWriterSm::sliceOver() const {
   return clock_->now() >= reviewStopTime();
}

// Keys are taken from the set's end, where they cost nothing to remove; marked one
// after the other, they lie side by side in the model.
void RouteBraneWriterSm::doReviewRoutes() {
   // A table's observer may run a review of its own.
   const Mox::Ptr<RouteChangeSet> set = reviewChangeSet_;
   Routes batch;
   while ( !set->route().empty() ) {
      RouteKey key = ( set->route().end() - 1 )->first;
      set->routeDel( key );
      doReviewRoute( key, batch );
      if ( sliceOver() ) break;
   }
   writeRoutes( batch );
}

// Deliberately runs even when the routes have used up the slice.
void RouteBraneWriterSm::doReviewRouteIntfs() {
   constexpr size_t kAhead = 32;
   const Mox::Ptr<RouteChangeSet> set = reviewChangeSet_;
   const DirtyRouteIntfs& marked = set->routeIntf();
   ModelFetch fetch( *status_ );
   RouteIntfs batch;
   for ( size_t told = marked.size(); !marked.empty(); ) {
      told = std::min( told, marked.size() );
      while ( told > 0 && told + kAhead > marked.size() )
         fetch.soon( marked[--told].first );
      RouteIntfKey key = ( marked.end() - 1 )->first;
      set->routeIntfDel( key );
      doReviewRouteIntf( key, batch );
      if ( sliceOver() ) break;
   }
   writeRouteIntfs( batch );
}

// A removal is notified: what was taken from the model before is written first.
void RouteBraneWriterSm::doReviewRoute( const RouteKey& key, Routes& batch ) {
   const SparseMode::Route* route = status_->route( key );
   if ( route == nullptr ) {
      MOX_TRACE( writerTrace, 4,
                 "doReviewRoute" << key << ": Deleting route from brane" );
      writeRoutes( batch );
      deleteRoute( key );
      return;
   }
   MOX_TRACE( writerTrace, 4,
              "doReviewRoute" << key << ": Updating route in brane, Flags: "
                              << route->routeFlagsString() << ", IIF Switch State: "
                              << route->iifSwitchState() );
   batch.push_back( { doGetBraneRouteFromRoute( *route ) } );
   if ( batch.size() == kTogether ) writeRoutes( batch );
}

void RouteBraneWriterSm::doReviewRouteIntf( const RouteIntfKey& key,
                                            RouteIntfs& batch ) {
   const SparseMode::Route* route = status_->route( key.routeKey );
   if ( route == nullptr ) {
      MOX_TRACE(
         writerTrace, 6,
         "doReviewRouteIntf" << key << ": Deleting intf from brane, no route" );
      writeRouteIntfs( batch );
      deleteRouteIntf( key );
      return;
   }
   const SparseMode::Intf* intf = route->routeIntf( key.intfId );
   if ( intf == nullptr ) {
      MOX_TRACE(
         writerTrace, 6,
         "doReviewRouteIntf" << key << ": Deleting intf from brane, no routeIntf" );
      writeRouteIntfs( batch );
      deleteRouteIntf( key );
      return;
   }
   MOX_TRACE( writerTrace, 6,
              "doReviewRouteIntf" << key << ": Updating intf in brane" );
   batch.push_back( { doGetBraneIntfFromRouteIntf( key.routeKey, *intf ) } );
   if ( batch.size() == kTogether ) writeRouteIntfs( batch );
}

// Writes or removes one record. A refusal is traced and counted. Returns true for
// want of room: room may come later.
template <class Key, class Operation>
bool RouteBraneWriterSm::refusedFullTable( const char* where, const Key& key,
                                           Writes& writes, Operation operation ) {
   try {
      operation();
      return false;
   } catch ( const Mox::Error& e ) {
      MOX_TRACE( writerTrace, 0,
                 where << key << ": " << e.what()
                       << Mox::traceField( "VRF", status_->vrfName().name() ) );
      ++writes.refused;
      refusedInc( 1 );
      // The system may have space again at any time, without a notice.
      if ( dynamic_cast<const ::Brane::NoSpaceError*>( &e ) )
         retry_->wakeupTimeIs( clock_->now() + noSpaceRetry );
      return dynamic_cast<const ::Brane::NoRoomError*>( &e ) != nullptr;
   }
}

// One by one after a refusal, which tells each that is refused.
void RouteBraneWriterSm::writeRoutes( Routes& batch ) {
   try {
      braneStatus_->routeIs( std::span<const RouteTable::Item>( batch ) );
      routeWrites_.written += batch.size();
   } catch ( const Mox::Error& ) {
      for ( const auto& item : batch ) writeRoute( item.value );
   }
   batch.clear();
}

void RouteBraneWriterSm::writeRouteIntfs( RouteIntfs& batch ) {
   try {
      braneStatus_->routeIntfIs( std::span<const RouteIntfTable::Item>( batch ) );
      routeIntfWrites_.written += batch.size();
   } catch ( const Mox::Error& ) {
      for ( const auto& item : batch ) writeRouteIntf( item.value );
   }
   batch.clear();
}

void RouteBraneWriterSm::writeRoute( const Brane::Route& record ) {
   bool full = refusedFullTable( "doReviewRoute", record.key, routeWrites_, [&] {
      braneStatus_->routeIs( record );
      ++routeWrites_.written;
   } );
   if ( full ) refusedRoutes_.insert( record.key );
}

void RouteBraneWriterSm::writeRouteIntf( const Brane::Intf& record ) {
   bool full =
      refusedFullTable( "doReviewRouteIntf", record.key, routeIntfWrites_, [&] {
         braneStatus_->routeIntfIs( record );
         ++routeIntfWrites_.written;
      } );
   if ( full ) refusedRouteIntfs_.insert( record.key );
}

void RouteBraneWriterSm::markRefusedRoutes() {
   for ( const RouteKey& waiting : std::exchange( refusedRoutes_, {} ) )
      changeSet_->routeIs( waiting, true );
}

void RouteBraneWriterSm::markRefusedRouteIntfs() {
   for ( const RouteIntfKey& waiting : std::exchange( refusedRouteIntfs_, {} ) )
      changeSet_->routeIntfIs( waiting, true );
}

// A removal makes room: refused records are tried again in the next review.
void RouteBraneWriterSm::deleteRoute( const RouteKey& key ) {
   refusedRoutes_.erase( key );
   bool removed = false;
   refusedFullTable( "doReviewRoute", key, routeWrites_,
                     [&] { removed = !!braneStatus_->routeDel( key ); } );
   if ( !removed ) return;
   ++routeWrites_.removed;
   markRefusedRoutes();
}

void RouteBraneWriterSm::deleteRouteIntf( const RouteIntfKey& key ) {
   refusedRouteIntfs_.erase( key );
   bool removed = false;
   refusedFullTable( "doReviewRouteIntf", key, routeIntfWrites_,
                     [&] { removed = !!braneStatus_->routeIntfDel( key ); } );
   if ( !removed ) return;
   ++routeIntfWrites_.removed;
   markRefusedRouteIntfs();
}

Mox::Ptr<RouteBraneWriterSm> routeBraneWriterSmFactory( ModelStatusPtr status,
                                                        BraneStatusPtr braneStatus,
                                                        Mox::Clock* clock ) {
   return Mox::newEntity<RouteBraneWriterSm>( std::move( status ),
                                              std::move( braneStatus ), clock );
}

Mox::Ptr<RouteBraneWriterSm> RouteBraneWriterSmIs( ModelStatusPtr status,
                                                   BraneStatusPtr braneStatus,
                                                   Mox::Clock* clock ) {
   return routeBraneWriterSmFactory( std::move( status ), std::move( braneStatus ),
                                     clock );
}

}
