#include "published/MfibStatus.h"

#include "export/Status.h"
#include "platform/entity/Factory.h"

namespace Published {

namespace {

// The kernel allows 32 in a table.
constexpr uint32_t kMaxVifs = 64;
constexpr uint32_t kMaxMfibSettings = 16;

}

MOX_ENTITY_TYPE( MfibStatus, PUBLISHED_MFIB_ATTRIBUTES )

MOX_FACTORY( MfibStatus, []( Mox::StringView name ) {
   return Mox::newEntity<MfibStatus>( name );
} )

// Beside the VRF's route tables: .../status/<vrf> and .../mfibstatus/<vrf>.
Mox::String MfibStatus::mountPath( Vantu::AddressFamily family,
                                   const L3::VrfName& vrf ) {
   Mox::String path =
      Routing::Pim::SparseMode::Brane::Status::mountPath( family, vrf );
   return path.insert( path.rfind( "/status/" ) + 1, "mfib" );
}

Mox::Ptr<MfibStatus> MfibStatus::mount( Corvex::EntityManager& manager,
                                        Mox::StringView path, Brane::TableRole role,
                                        uint32_t maxRoutes ) {
   Mox::Ptr<Mox::Entity> created =
      MoxBrane::createEntity( manager, path, staticTypeInfo().name );
   Mox::Ptr<MfibStatus> entity( dynamic_cast<MfibStatus*>( created.get() ) );
   auto initialize = [&]( MoxBrane::CollectionControl& control,
                          uint32_t capacity ) {
      control.initialize( role, capacity, manager.attachSuspended() );
   };
   initialize( *entity->vifControl(), kMaxVifs );
   initialize( *entity->cacheControl(), maxRoutes );
   initialize( *entity->upcallControl(), maxUpcalls );
   initialize( *entity->settingControl(), kMaxMfibSettings );
   return entity;
}

}
