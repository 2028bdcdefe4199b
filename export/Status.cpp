#include "export/Status.h"

#include "platform/entity/Factory.h"
#include "platform/mount/VrfPath.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_ENTITY_TYPE( Status, PIMSM_BRANE_STATUS_ATTRIBUTES )

MOX_FACTORY( Status, []( Mox::StringView name ) { return statusFactory( name ); } )

Mox::Ptr<Status> statusFactory( Mox::StringView name ) {
   return Mox::newEntity<Status>( name );
}

namespace {

void mountAsWriter( Status& tables, const SparseMode::Status& status,
                    bool suspended ) {
   constexpr auto kRole = ::Brane::tableWriter;
   tables.routeControl()->initialize( kRole, status.maxRoutes(), suspended );
   tables.routeIntfControl()->initialize( kRole, status.maxRouteIntfs(),
                                          suspended );
   tables.routeCounterControl()->initialize( kRole, routeCounterTypes, suspended );
}

void mountAsReader( Status& tables, ::Brane::TableRole role, bool suspended ) {
   tables.routeCounterControl()->initialize( role, 0, suspended );
   tables.routeIntfControl()->initialize( role, 0, suspended );
   tables.routeControl()->initialize( role, 0, suspended );
}

}

Mox::String Status::mountPath( Vantu::AddressFamily family,
                               const L3::VrfName& vrf ) {
   return ::MoxBrane::vrfPath( "pim/sparsemode/status", family, vrf );
}

Mox::Ptr<Status> Status::mountInDependencyOrder(
   Corvex::EntityManager& manager, Mox::StringView path,
   ::Brane::TableRole tableRole,
   const Mox::Ptr<const SparseMode::Status>& status ) {
   Mox::Ptr<Mox::Entity> created =
      ::MoxBrane::createEntity( manager, path, staticTypeInfo().name );
   Mox::Ptr<Status> entity( dynamic_cast<Status*>( created.get() ) );
   MOX_ASSERT( entity );
   bool suspended = manager.attachSuspended();
   if ( tableRole == ::Brane::tableWriter ) {
      MOX_ASSERT( status );
      mountAsWriter( *entity, *status, suspended );
   } else if ( !suspended ) {
      mountAsReader( *entity, tableRole, suspended );
   }
   return entity;
}

uint32_t Status::counted( RouteCounterType type ) const {
   RouteCounter counter;
   bool found = routeCounter().find( { type, 0 }, counter ) == ::Brane::lookupFound;
   return found ? counter.count : 0;
}

}
