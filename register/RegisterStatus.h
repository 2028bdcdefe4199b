// The register state of one VRF and address family: four tables of (S,G) keys, for
// other processes to read without asking the agent.
//
// The agent mounts them as writer and alone decides on their content. The mutators
// count their calls in event counters of their own names under the entity's name
// (platform/mount/TableAttribute.h). Observers hear local writes at once, other
// processes' from the loop. Event-loop thread only.
//
// When the last reference goes, the tables' controls lose their entity, in row
// order, so that a handle still held does nothing.
#pragma once

#include <memory>

#include "model/Status.h"
#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"
#include "register/FlatRecords.h"

namespace Routing::Pim::SparseMode {

using InternalRouteKeyTable = ::MoxBrane::Table<InternalRouteKey>;

// The row order is the order of the event counters and of the teardown.
// clang-format off
#define PIMSM_REGISTER_STATUS_ATTRIBUTES( A ) \
   A( CountedTable, anycastDiscoveredSg, AnycastDiscoveredSg, InternalRouteKeyTable, , "learned from an anycast-RP peer" ) \
   A( CountedTable, drDiscoveredSg,      DrDiscoveredSg,      InternalRouteKeyTable, , "this router is the source's first-hop DR" ) \
   A( CountedTable, noRegisterOif,       NoRegisterOif,       InternalRouteKeyTable, , "olist without the register interface" ) \
   A( CountedTable, registerOif,         RegisterOif,         InternalRouteKeyTable, , "olist with the register interface" ) \
   A( Computed, name,                       Name,                       Mox::String,                   , "mount path" ) \
   A( Computed, anycastDiscoveredSgControl, AnycastDiscoveredSgControl, ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, drDiscoveredSgControl,      DrDiscoveredSgControl,      ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, noRegisterOifControl,       NoRegisterOifControl,       ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, registerOifControl,         RegisterOifControl,         ::MoxBrane::CollectionControl, , "mounting handle" )
// clang-format on

// The numbers of records that a writer's tables can hold.
struct PIMSM_API RegisterCapacities {
   RegisterCapacities() = default;
   // Room for each of the model's routes.
   explicit RegisterCapacities( const Status& status );

   uint32_t anycastDiscoveredSg = 0;
   uint32_t drDiscoveredSg = 0;
   uint32_t noRegisterOif = 0;
   uint32_t registerOif = 0;
};

class RegisterStatusZeroReferencesNotifiee;

class PIMSM_API RegisterStatus : public ::MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( RegisterStatus, PIMSM_REGISTER_STATUS_ATTRIBUTES )

   // Makes an unmounted entity; use mount().
   explicit RegisterStatus( Mox::StringView name );

   // Where the tables of a VRF are mounted; fails as MoxBrane::vrfPath().
   static Mox::String mountPath( Vantu::AddressFamily family,
                                 const L3::VrfName& vrf );

   // Finds or creates the entity at the path and initialises its tables for the
   // role. A reader's capacities are not used, and it mounts nothing while the
   // manager's attachSuspended is set. Throws the exceptions of
   // CollectionControl::initialize.
   static Mox::Ptr<RegisterStatus> mount(
      Corvex::EntityManager& manager, Mox::StringView path, ::Brane::TableRole role,
      const RegisterCapacities& capacities = {} );

   // It is never restored from a backup copy.
   static constexpr bool hasBackupSupport() { return false; }

 protected:
   ~RegisterStatus() override;

 private:
   void handleZeroReferences() override;

   std::unique_ptr<RegisterStatusZeroReferencesNotifiee> zeroReferences_;
};

PIMSM_API Mox::Ptr<RegisterStatus> registerStatusFactory( Mox::StringView name );

}
