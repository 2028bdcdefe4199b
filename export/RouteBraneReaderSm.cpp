#include "export/RouteBraneReaderSm.h"

#include "export/Conversion.h"
#include "export/detail/ModelFetch.h"
#include "export/detail/StrayIntfs.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_TRACE_FACILITY( readerTrace, "Pimsm::RouteBraneReader" )

MOX_ENTITY_TYPE( RouteBraneReaderSm, PIMSM_ROUTE_READER_ATTRIBUTES )

#define READER_TRACE( level, ... ) \
   MOX_TRACE(                      \
      readerTrace, level,          \
      "RouteBraneReader(" << Mox::pointerText( this ) << ")" << __VA_ARGS__ )

class RouteBraneReaderSm::MoxStatus : public SparseMode::Status::NotifieeConst {
 public:
   explicit MoxStatus( RouteBraneReaderSm& reader ) : reader_( reader ) {
      notifierIs( reader.status().get() );
   }
   void onRoute( const RouteKey& key ) override {
      Mox::Pin pin( &reader_ );
      reader_.handleRoute( key );
   }

 private:
   RouteBraneReaderSm& reader_;
};

class RouteBraneReaderSm::MoxBraneStatus : public Brane::Status::NotifieeConst {
 public:
   explicit MoxBraneStatus( RouteBraneReaderSm& reader )
      : reader_( reader ), fetch_( *reader.status() ) {
      notifierIs( reader.braneStatus().get() );
   }
   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override {
      Mox::Pin pin( &reader_ );
      reader_.handleBraneRoute( key );
   }
   void onRouteIntf( const RouteIntfKey& key ) override {
      Mox::Pin pin( &reader_ );
      reader_.handleBraneRouteIntf( key );
   }
   void onRouteIntfSoon( const RouteIntfKey& key ) override { fetch_.soon( key ); }

 private:
   RouteBraneReaderSm& reader_;
   ModelFetch fetch_;
};

RouteBraneReaderSm::RouteBraneReaderSm( ModelStatusMutablePtr status,
                                        BraneStatusConstPtr braneStatus )
   : status_( std::move( status ) ),
     braneStatus_( std::move( braneStatus ) ),
     moxStatus_( std::make_unique<MoxStatus>( *this ) ),
     moxBraneStatus_( std::make_unique<MoxBraneStatus>( *this ) ),
     strays_( std::make_unique<StrayIntfs>( *braneStatus_ ) ) {
   for ( const SparseMode::Route& route : std::as_const( *status_ ).route() )
      counted_.insert( route.key() );
   handleInitialized();
}

RouteBraneReaderSm::~RouteBraneReaderSm() = default;

void RouteBraneReaderSm::handleInitialized() {
   READER_TRACE( 8, "handleInitialized" );
   initializedIs( true );
}

void RouteBraneReaderSm::handleBraneRoute( const RouteKey& key ) {
   Brane::Route record;
   switch ( braneStatus()->route().find( key, record ) ) {
      case ::Brane::lookupAbsent:
         READER_TRACE( 4, "handleBraneRoute(), deleting route " << key );
         deleteRoute( key );
         return;
      case ::Brane::lookupFound: {
         READER_TRACE( 4, "handleBraneRoute(), creating/updating route " << key );
         Mox::Ptr<SparseMode::Route> route = status()->routeIs( key );
         doUpdateRoute( *route, record );
         return;
      }
      default:
         READER_TRACE( 4, "handleBraneRoute(), unreadable now, route " << key );
   }
}

// Deletes the route with its interfaces. They are noted: those with records may be
// wanted again.
void RouteBraneReaderSm::deleteRoute( const RouteKey& key ) {
   Mox::Ptr<SparseMode::Route> removed = status()->routeDel( key );
   if ( removed == nullptr ) return;
   for ( const SparseMode::Intf& intf : removed->routeIntf() ) {
      strays_->note( { key, intf.intfId() } );
   }
}

void RouteBraneReaderSm::handleBraneRouteIntf( const RouteIntfKey& key ) {
   Mox::Ptr<SparseMode::Route> route = status()->route( key.routeKey );
   if ( route == nullptr ) {
      READER_TRACE( 4, "handleBraneRouteIntf(), no route for route intf " << key );
      handleBraneRoute( key.routeKey );
      route = status()->route( key.routeKey );
   }
   if ( route == nullptr ) {
      READER_TRACE(
         4, "handleBraneRouteIntf(), ignoring notificaton, no route for " << key );
      strays_->note( key );
      return;
   }
   Brane::Intf record;
   switch ( braneStatus()->routeIntf().find( key, record ) ) {
      case ::Brane::lookupAbsent:
         READER_TRACE( 4, "handleBraneRouteIntf(), deleting route intf " << key );
         route->routeIntfDel( key.intfId );
         return;
      case ::Brane::lookupFound: {
         READER_TRACE( 4, "handleBraneRouteIntf(), updating route intf " << key );
         Mox::Ptr<SparseMode::Intf> intf = route->routeIntfIs( key.intfId );
         doUpdateIntf( *intf, record );
         return;
      }
      default:
         READER_TRACE(
            4, "handleBraneRouteIntf(), unreadable now, route intf " << key );
   }
}

// A change made inside a notification is notified first; the outer one then finds
// nothing new. The model's sources do not say what is counted: others may keep
// sources there, too.
void RouteBraneReaderSm::handleRoute( const RouteKey& key ) {
   READER_TRACE( 8, "handleRoute" );
   SparseMode::Status& model = *status();
   Mox::Ptr<SparseMode::Route> route = model.route( key );
   bool wildcard = key.source.isUnspecified();
   if ( route != nullptr ) {
      if ( counted_.insert( key ).second )
         wildcard ? model.wcRoutesInc( 1 ) : model.sgRoutesInc( 1 );
      if ( model.route( key ) != route ) return;  // gone while it was counted
      model.sourceIs( key.source )->sourceGroupIs( key.group, true );
      strays_->adopt( *route );
      return;
   }
   if ( counted_.erase( key ) == 0 ) return;
   // Routes from before this reader may not have been counted.
   const uint32_t count = wildcard ? model.wcRoutes() : model.sgRoutes();
   if ( count > 0 ) wildcard ? model.wcRoutesDec( 1 ) : model.sgRoutesDec( 1 );
   Mox::Ptr<Source> source = model.source( key.source );
   if ( source == nullptr ) return;
   source->sourceGroupDel( key.group );
   if ( source->sourceGroup().empty() ) model.sourceDel( key.source );
}

Mox::Ptr<RouteBraneReaderSm> routeBraneReaderSmFactory(
   ModelStatusMutablePtr status, BraneStatusConstPtr braneStatus ) {
   return Mox::newEntity<RouteBraneReaderSm>( std::move( status ),
                                              std::move( braneStatus ) );
}

Mox::Ptr<RouteBraneReaderSm> RouteBraneReaderSmIs(
   ModelStatusMutablePtr status, BraneStatusConstPtr braneStatus ) {
   return routeBraneReaderSmFactory( std::move( status ),
                                     std::move( braneStatus ) );
}

}
