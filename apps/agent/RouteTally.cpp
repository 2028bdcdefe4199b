#include "apps/agent/RouteTally.h"

#include <algorithm>

#include "platform/trace/Trace.h"

namespace Agent {

MOX_TRACE_FACILITY( trace, "Pimsm::Agent" )

namespace Brane = Routing::Pim::SparseMode::Brane;

RouteTally::RouteTally( Mox::Clock& clock,
                        Mox::Ptr<const Routing::Pim::SparseMode::Status> model,
                        Mox::Ptr<Brane::Status> tables )
   : Notifiee( &clock ),
     model_( std::move( model ) ),
     tables_( std::move( tables ) ) {}

void RouteTally::touch() {
   double due = std::max( clock()->now(), last_ + interval );
   if ( wakeupTime() > due ) wakeupTimeIs( due );
}

void RouteTally::count() {
   last_ = clock()->now();
   uint32_t unresolved = 0;
   uint32_t toBeDeleted = 0;
   uint32_t switching = 0;
   for ( const auto& route : model_->route() ) {
      unresolved += route.rpf().intfId == Vantu::IntfId() ? 1 : 0;
      toBeDeleted += route.markedForDeletion() ? 1 : 0;
      switching += route.switching() ? 1 : 0;
   }
   write( Brane::unresolved, unresolved );
   write( Brane::toBeDeleted, toBeDeleted );
   write( Brane::switching, switching );
}

void RouteTally::write( Brane::RouteCounterType type, uint32_t count ) {
   Brane::RouteCounter record{ { type, 0 }, count };
   Brane::RouteCounter before;
   if ( tables_->routeCounter().find( record.key, before ) ==
           ::Brane::lookupFound &&
        before == record )
      return;
   // A damaged count is no reason for the agent to end; the next mount repairs it.
   try {
      tables_->routeCounterIs( record );
   } catch ( const ::Brane::TableError& e ) {
      MOX_TRACE( trace, 0, "routeCounter: " << e.what() );
   }
}

}
