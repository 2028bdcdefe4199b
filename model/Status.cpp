#include "model/Status.h"

#include "platform/entity/Factory.h"
#include "platform/trace/Probe.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Status, PIMSM_STATUS_ATTRIBUTES )

MOX_FACTORY( Status, []( Mox::StringView name ) {
   return statusFactory( L3::VrfName( Mox::String( name ) ) );
} )

Status::~Status() {
   for ( SparseMode::Route* route : strays_.members() )
      route->pimsmStatus_ = nullptr;
   for ( SparseMode::Route& route : route_ ) route.pimsmStatus_ = nullptr;
}

void Status::handleZeroReferences() {
   routeDelAll();
   sourceDelAll();
}

void Status::handleRouteDel( SparseMode::Route& removed ) {
   removed.stray_ = true;
   strays_.add( &removed );
   MOX_PROBE( route_del, &removed.key() );
}

Mox::Ptr<Status> statusFactory( const L3::VrfName& vrfName ) {
   return Mox::newEntity<Status>( vrfName );
}

}
