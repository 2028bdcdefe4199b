// The (S,G) routes of one VRF and address family that the agent advertises to other
// RPs, as a table for other processes to read.
//
// As RegisterStatus otherwise: written by the agent, counted, torn down.
#pragma once

#include <memory>

#include "model/Status.h"
#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"
#include "register/FlatRecords.h"

namespace Routing::Pim::SparseMode {

using AdvertisedSgTable = ::MoxBrane::Table<AdvertisedSg>;

// clang-format off
#define PIMSM_ADVERTISED_SG_STATUS_ATTRIBUTES( A ) \
   A( CountedTable, coll,        Coll,        AdvertisedSgTable,             , "by AdvertisedSg::key" ) \
   A( Computed,     name,        Name,        Mox::String,                   , "mount path" ) \
   A( Computed,     collControl, CollControl, ::MoxBrane::CollectionControl, , "mounting handle" )
// clang-format on

class AdvertisedSgStatusZeroReferencesNotifiee;

class PIMSM_API AdvertisedSgStatus : public ::MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( AdvertisedSgStatus, PIMSM_ADVERTISED_SG_STATUS_ATTRIBUTES )

   // Unmounted; use mount().
   explicit AdvertisedSgStatus( Mox::StringView name );

   // Where the table of a VRF is mounted; fails as MoxBrane::vrfPath().
   static Mox::String mountPath( Vantu::AddressFamily family,
                                 const L3::VrfName& vrf );

   // The number of records that the table can hold: one for each of the model's
   // routes.
   static uint32_t capacityFor( const Status& status ) {
      return status.maxRoutes();
   }

   // Finds or creates the entity at the path and initialises its table for the
   // role. A reader's capacity is not used, and it mounts nothing while the
   // manager's attachSuspended is set. Throws the exceptions of
   // CollectionControl::initialize.
   static Mox::Ptr<AdvertisedSgStatus> mount( Corvex::EntityManager& manager,
                                              Mox::StringView path,
                                              ::Brane::TableRole role,
                                              uint32_t capacity = 0 );

 protected:
   ~AdvertisedSgStatus() override;

 private:
   void handleZeroReferences() override;

   std::unique_ptr<AdvertisedSgStatusZeroReferencesNotifiee> zeroReferences_;
};

PIMSM_API Mox::Ptr<AdvertisedSgStatus> advertisedSgStatusFactory(
   Mox::StringView name );

}
