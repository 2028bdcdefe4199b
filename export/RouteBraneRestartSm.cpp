#include "export/RouteBraneRestartSm.h"

#include <utility>

#include "export/Conversion.h"
#include "export/detail/ModelFetch.h"
#include "export/detail/StrayIntfs.h"
#include "platform/trace/Probe.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_TRACE_FACILITY( restartTrace, "Pimsm::RouteBraneRestart" )

MOX_ENTITY_TYPE( RouteBraneRestartSm, PIMSM_ROUTE_RESTART_ATTRIBUTES )

#define RESTART_TRACE( level, ... ) \
   MOX_TRACE(                       \
      restartTrace, level,          \
      "RouteBraneRestart(" << Mox::pointerText( this ) << ")" << __VA_ARGS__ )

namespace {

RouteIntfKey bookmarkOf( const RouteKey& key ) {
   return { key, {} };
}
RouteIntfKey bookmarkOf( const RouteIntfKey& key ) {
   return key;
}

}

class RouteBraneRestartSm::MoxClock : public Mox::Clock::Notifiee {
 public:
   explicit MoxClock( RouteBraneRestartSm& restart )
      : Notifiee( restart.clock() ), restart_( restart ) {}
   void onTime() override {
      Mox::Pin pin( &restart_ );
      restart_.doReview();
   }

 private:
   RouteBraneRestartSm& restart_;
};

class RouteBraneRestartSm::MoxStatus : public SparseMode::Status::NotifieeConst {
 public:
   explicit MoxStatus( RouteBraneRestartSm& restart )
      : restart_( restart ), strays_( *restart.braneStatus() ) {
      notifierIs( restart.status().get() );
   }
   void note( const RouteIntfKey& key ) { strays_.note( key ); }
   void onRoute( const RouteKey& key ) override {
      Mox::Ptr<SparseMode::Route> route = restart_.status()->route( key );
      if ( route != nullptr ) strays_.adopt( *route );
   }

 private:
   RouteBraneRestartSm& restart_;
   StrayIntfs strays_;
};

RouteBraneRestartSm::RouteBraneRestartSm( ModelStatusMutablePtr status,
                                          BraneStatusMutablePtr braneStatus,
                                          ::Brane::TableRole role,
                                          Mox::Clock* clock )
   : status_( std::move( status ) ),
     braneStatus_( std::move( braneStatus ) ),
     role_( role ),
     clock_( clock ),
     moxClock_( std::make_unique<MoxClock>( *this ) ),
     moxStatus_( role == ::Brane::tableWriter
                    ? nullptr
                    : std::make_unique<MoxStatus>( *this ) ) {
   doReview();
   handleInitialized();
}

RouteBraneRestartSm::~RouteBraneRestartSm() = default;

void RouteBraneRestartSm::handleInitialized() {
   RESTART_TRACE( 8, "handleInitialized" );
   initializedIs( true );
   moxClock_->wakeupTimeIs( clock()->now() );
}

void RouteBraneRestartSm::doReview() {
   if ( !initialized() ) return;
   RESTART_TRACE( 3, "doReview(), Reviewing routes" );
   reviewStopTimeIs( clock()->now() + reviewQuantum() );
   doReviewRoutes();
   if ( reviewedRoutes() ) doReviewRouteIntfs();
   if ( reviewedRouteIntfs() ) doInitializeRoutes();
   if ( initializedRoutes() ) {
      RESTART_TRACE( 3, "doReview(), Brane routes: "
                           << braneStatus()->route().size()
                           << ", Status routes: " << status()->route().size() );
      MOX_PROBE( reload, status()->route().size() );
      status()->initializedIs( true );
      return;
   }
   RESTART_TRACE( 3, "doReview(), Suspending review at " << reviewBookmark() );
   moxClock_->wakeupTimeIs( clock()->now() );
}

// Handles one entry, then checks the time. When it is up, keeps the key of the next
// entry as bookmark and returns false.
template <class Table>
bool RouteBraneRestartSm::walk(
   const Table& table, const typename Table::Key& from,
   std::optional<typename Table::Walk>& at,
   const std::function<void( const typename Table::Value& )>& handle,
   const typename Table::Ahead& ahead ) {
   if ( reviewBookmark() != left_ ) at.reset();  // others have set it
   bool before = !at && from != typename Table::Key();
   bool over = false;
   auto visitor = [&]( const typename Table::Value& record ) {
      before = before && record.key != from;
      if ( before ) return true;
      if ( over ) {
         left_ = bookmarkOf( record.key );
         return false;
      }
      handle( record );
      over = clock()->now() >= reviewStopTime();
      return true;
   };
   if ( !at ) at.emplace( table );
   bool ended = at->advance( visitor, ahead );
   // Nothing stands at the bookmark: from the start.
   if ( ended && std::exchange( before, false ) )
      ended = at.emplace( table ).advance( visitor, ahead );
   if ( ended ) {
      left_ = {};
      routes_.reset();
      routeIntfs_.reset();
   }
   reviewBookmarkIs( left_ );
   return ended;
}

bool RouteBraneRestartSm::walkRoutes(
   const std::function<void( const Brane::Route& )>& handle ) {
   RouteKey from = reviewBookmark().routeKey;
   return walk( braneStatus()->route(), from, routes_, handle );
}

void RouteBraneRestartSm::doReviewRoutes() {
   if ( reviewedRoutes() ) return;
   RESTART_TRACE( 8, "doReviewRoutes" );
   reviewedRoutesIs( walkRoutes( [this]( const Brane::Route& record ) {
      Mox::Ptr<SparseMode::Route> route = status()->routeIs( record.key );
      doUpdateRoute( *route, record );
      RESTART_TRACE( 4, "doReviewRoutes(), Updated route "
                           << record.key << ", Flags: " << route->routeFlagsString()
                           << ", IIF Switch State: " << route->iifSwitchState() );
   } ) );
}

void RouteBraneRestartSm::doReviewRouteIntfs() {
   if ( reviewedRouteIntfs() ) return;
   RouteIntfKey from = reviewBookmark();
   ModelFetch fetch( *status() );
   reviewedRouteIntfsIs( walk(
      braneStatus()->routeIntf(), from, routeIntfs_,
      [this]( const Brane::Intf& record ) { doReviewRouteIntf( record ); },
      [&]( const RouteIntfKey& key ) { fetch.soon( key ); } ) );
}

void RouteBraneRestartSm::doReviewRouteIntf( const Brane::Intf& record ) {
   Mox::Ptr<SparseMode::Route> route = status()->route( record.key.routeKey );
   if ( route != nullptr ) {
      RESTART_TRACE(
         6, "doReviewRouteIntfs" << record.key << ", Updating intf in brane" );
      doUpdateIntf( *route->routeIntfIs( record.key.intfId ), record );
   } else if ( role() == ::Brane::tableWriter ) {
      deleteStale( record.key );
   } else {
      moxStatus_->note( record.key );
   }
}

// A damaged record is left for the table's own repair; the reload continues.
void RouteBraneRestartSm::deleteStale( const RouteIntfKey& key ) {
   try {
      braneStatus()->routeIntfDel( key );
   } catch ( const ::Brane::TableError& e ) {
      RESTART_TRACE( 0, "doReviewRouteIntfs" << key << ": " << e.what() );
   }
}

void RouteBraneRestartSm::doInitializeRoutes() {
   if ( initializedRoutes() ) return;
   initializedRoutesIs( walkRoutes( [this]( const Brane::Route& record ) {
      Mox::Ptr<SparseMode::Route> route = status()->route( record.key );
      if ( route == nullptr ) return;
      RESTART_TRACE( 4, "doInitializeRoutes(), Initializing route "
                           << record.key
                           << ", Flags: " << route->routeFlagsString() );
      route->initializedIs( true );
   } ) );
}

Mox::Ptr<RouteBraneRestartSm> routeBraneRestartSmFactory(
   ModelStatusMutablePtr status, BraneStatusMutablePtr braneStatus,
   ::Brane::TableRole role, Mox::Clock* clock ) {
   return Mox::newEntity<RouteBraneRestartSm>(
      std::move( status ), std::move( braneStatus ), role, clock );
}

Mox::Ptr<RouteBraneRestartSm> RouteBraneRestartSmIs(
   ModelStatusMutablePtr status, BraneStatusMutablePtr braneStatus,
   ::Brane::TableRole role, Mox::Clock* clock ) {
   return routeBraneRestartSmFactory( std::move( status ), std::move( braneStatus ),
                                      role, clock );
}

}
