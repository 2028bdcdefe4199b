#include "published/Status.h"

#include "export/Status.h"
#include "platform/entity/Factory.h"

namespace Published {

namespace {

constexpr uint32_t kMaxInterfaces = 4096;
constexpr uint32_t kMaxOwnAddresses = 16384;
constexpr uint32_t kMaxNeighbors = 16384;
constexpr uint32_t kMaxRegistering = 16384;
constexpr uint32_t kMaxRps = 1024;
constexpr uint32_t kMaxAccessRules = 4096;
constexpr uint32_t kMaxSettings = 64;
constexpr uint32_t kMaxCounters = 8192;

template <class T>
Mox::Ptr<T> entityAt( Corvex::EntityManager& manager, Mox::StringView path ) {
   Mox::Ptr<Mox::Entity> created =
      MoxBrane::createEntity( manager, path, T::staticTypeInfo().name );
   return Mox::Ptr<T>( dynamic_cast<T*>( created.get() ) );
}

void initialize( MoxBrane::CollectionControl& control, Brane::TableRole role,
                 uint32_t capacity, const Corvex::EntityManager& manager ) {
   control.initialize( role, capacity, manager.attachSuspended() );
}

}

MOX_ENTITY_TYPE( FamilyStatus, PUBLISHED_FAMILY_ATTRIBUTES )
MOX_ENTITY_TYPE( ProcessStatus, PUBLISHED_PROCESS_ATTRIBUTES )

MOX_FACTORY( FamilyStatus, []( Mox::StringView name ) {
   return Mox::newEntity<FamilyStatus>( name );
} )
MOX_FACTORY( ProcessStatus, []( Mox::StringView name ) {
   return Mox::newEntity<ProcessStatus>( name );
} )

// Beside the VRF's route tables: .../status/<vrf> and .../agentstatus/<vrf>.
Mox::String FamilyStatus::mountPath( Vantu::AddressFamily family,
                                     const L3::VrfName& vrf ) {
   Mox::String path =
      Routing::Pim::SparseMode::Brane::Status::mountPath( family, vrf );
   return path.insert( path.rfind( "/status/" ) + 1, "agent" );
}

Mox::Ptr<FamilyStatus> FamilyStatus::mount( Corvex::EntityManager& manager,
                                            Mox::StringView path,
                                            Brane::TableRole role,
                                            uint32_t routeIntfs ) {
   Mox::Ptr<FamilyStatus> entity = entityAt<FamilyStatus>( manager, path );
   initialize( *entity->interfaceControl(), role, kMaxInterfaces, manager );
   initialize( *entity->ownAddressControl(), role, kMaxOwnAddresses, manager );
   initialize( *entity->neighborControl(), role, kMaxNeighbors, manager );
   initialize( *entity->neighborAddressControl(), role, kMaxNeighbors, manager );
   initialize( *entity->downstreamControl(), role, routeIntfs, manager );
   initialize( *entity->registeringControl(), role, kMaxRegistering, manager );
   initialize( *entity->rpControl(), role, kMaxRps, manager );
   initialize( *entity->accessRuleControl(), role, kMaxAccessRules, manager );
   initialize( *entity->settingControl(), role, kMaxSettings, manager );
   return entity;
}

Mox::Ptr<ProcessStatus> ProcessStatus::mount( Corvex::EntityManager& manager,
                                              Brane::TableRole role ) {
   return mountAt( manager, role, mountPath );
}

Mox::Ptr<ProcessStatus> ProcessStatus::mountAt( Corvex::EntityManager& manager,
                                                Brane::TableRole role,
                                                Mox::StringView path ) {
   Mox::Ptr<ProcessStatus> entity = entityAt<ProcessStatus>( manager, path );
   initialize( *entity->counterControl(), role, kMaxCounters, manager );
   return entity;
}

}
