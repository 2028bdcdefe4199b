#include "router/RouteTally.h"

#include <algorithm>

#include "platform/trace/Trace.h"

namespace Router {

MOX_TRACE_FACILITY( trace, "Pimsm::Router" )

namespace Brane = Routing::Pim::SparseMode::Brane;

RouteTally::RouteTally( Mox::Clock& clock,
                        Mox::Ptr<const Routing::Pim::SparseMode::Status> model,
                        Mox::Ptr<Brane::Status> tables,
                        std::function<bool( const Vantu::IpGenAddr& )> isOwn )
   : Notifiee( &clock ),
     model_( std::move( model ) ),
     tables_( std::move( tables ) ),
     isOwn_( std::move( isOwn ) ) {}

void RouteTally::touch() {
   double due = std::max( clock()->now(), last_ + interval );
   if ( wakeupTime() > due ) wakeupTimeIs( due );
}

void RouteTally::count() {
   last_ = clock()->now();
   uint32_t waiting = 0;
   uint32_t toBeDeleted = 0;
   uint32_t switching = 0;
   for ( const auto& route : model_->route() ) {
      waiting += unresolved( route ) ? 1 : 0;
      toBeDeleted += route.markedForDeletion() ? 1 : 0;
      switching += route.switching() ? 1 : 0;
   }
   write( Brane::unresolved, waiting );
   write( Brane::toBeDeleted, toBeDeleted );
   write( Brane::switching, switching );
}

bool RouteTally::unresolved( const Routing::Pim::SparseMode::Route& route ) const {
   if ( !route.rpf().intfId.empty() ) return false;
   return !route.wildCard() || route.umh() == nullptr ||
          !isOwn_( route.umh()->rp() );
}

void RouteTally::write( Brane::RouteCounterType type, uint32_t count ) {
   Brane::RouteCounter record{ { type, 0 }, count };
   Brane::RouteCounter before;
   if ( tables_->routeCounter().find( record.key, before ) ==
           ::Brane::lookupFound &&
        before == record )
      return;
   // A damaged count does not end the agent; the next mount repairs it.
   try {
      tables_->routeCounterIs( record );
   } catch ( const ::Brane::TableError& e ) {
      MOX_TRACE( trace, 0, "routeCounter: " << e.what() );
   }
}

}
