#include "register/RegisterStatus.h"

#include "platform/entity/Factory.h"
#include "platform/mount/VrfPath.h"
#include "register/detail/ZeroReferences.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( RegisterStatus, PIMSM_REGISTER_STATUS_ATTRIBUTES )

MOX_FACTORY( RegisterStatus,
             []( Mox::StringView name ) { return registerStatusFactory( name ); } )

Mox::Ptr<RegisterStatus> registerStatusFactory( Mox::StringView name ) {
   return Mox::newEntity<RegisterStatus>( name );
}

RegisterStatus::RegisterStatus( Mox::StringView name )
   : MountedEntity( name, ::MoxBrane::besidePath( name, "status" ) ),
     zeroReferences_(
        std::make_unique<RegisterStatusZeroReferencesNotifiee>( this ) ) {}

RegisterStatus::~RegisterStatus() = default;

void RegisterStatus::handleZeroReferences() {
   MountedEntity::handleZeroReferences();
   zeroReferences_->handleZeroReferences();
}

RegisterCapacities::RegisterCapacities( const Status& status )
   : anycastDiscoveredSg( status.maxRoutes() ),
     drDiscoveredSg( status.maxRoutes() ),
     noRegisterOif( status.maxRoutes() ),
     registerOif( status.maxRoutes() ) {}

Mox::String RegisterStatus::mountPath( Vantu::AddressFamily family,
                                       const L3::VrfName& vrf ) {
   return ::MoxBrane::vrfPath( "pim/sparsemode/registerstatus", family, vrf );
}

Mox::Ptr<RegisterStatus> RegisterStatus::mount(
   Corvex::EntityManager& manager, Mox::StringView path, ::Brane::TableRole role,
   const RegisterCapacities& capacities ) {
   Mox::Ptr<Mox::Entity> created =
      ::MoxBrane::createEntity( manager, path, staticTypeInfo().name );
   Mox::Ptr<RegisterStatus> entity(
      dynamic_cast<RegisterStatus*>( created.get() ) );
   MOX_ASSERT( entity );
   auto initialize = [&]( ::MoxBrane::CollectionControl* control,
                          uint32_t capacity ) {
      control->initialize( role, capacity, manager.attachSuspended() );
   };
   initialize( entity->anycastDiscoveredSgControl(),
               capacities.anycastDiscoveredSg );
   initialize( entity->drDiscoveredSgControl(), capacities.drDiscoveredSg );
   initialize( entity->noRegisterOifControl(), capacities.noRegisterOif );
   initialize( entity->registerOifControl(), capacities.registerOif );
   return entity;
}

}
