#include "register/AdvertisedSgStatus.h"

#include "platform/entity/Factory.h"
#include "platform/mount/VrfPath.h"
#include "register/detail/ZeroReferences.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( AdvertisedSgStatus, PIMSM_ADVERTISED_SG_STATUS_ATTRIBUTES )

MOX_FACTORY( AdvertisedSgStatus, []( Mox::StringView name ) {
   return advertisedSgStatusFactory( name );
} )

Mox::Ptr<AdvertisedSgStatus> advertisedSgStatusFactory( Mox::StringView name ) {
   return Mox::newEntity<AdvertisedSgStatus>( name );
}

AdvertisedSgStatus::AdvertisedSgStatus( Mox::StringView name )
   : MountedEntity( name, ::MoxBrane::besidePath( name, "status" ) ),
     zeroReferences_(
        std::make_unique<AdvertisedSgStatusZeroReferencesNotifiee>( this ) ) {}

AdvertisedSgStatus::~AdvertisedSgStatus() = default;

void AdvertisedSgStatus::handleZeroReferences() {
   MountedEntity::handleZeroReferences();
   zeroReferences_->handleZeroReferences();
}

Mox::String AdvertisedSgStatus::mountPath( Vantu::AddressFamily family,
                                           const L3::VrfName& vrf ) {
   return ::MoxBrane::vrfPath( "pim/sparsemode/advertisedsgstatus", family, vrf );
}

Mox::Ptr<AdvertisedSgStatus> AdvertisedSgStatus::mount(
   Corvex::EntityManager& manager, Mox::StringView path, ::Brane::TableRole role,
   uint32_t capacity ) {
   Mox::Ptr<Mox::Entity> created =
      ::MoxBrane::createEntity( manager, path, staticTypeInfo().name );
   Mox::Ptr<AdvertisedSgStatus> entity(
      dynamic_cast<AdvertisedSgStatus*>( created.get() ) );
   MOX_ASSERT( entity );
   entity->collControl()->initialize( role, capacity, manager.attachSuspended() );
   return entity;
}

}
