// The tables in which the forwarding process publishes the kernel's state of one
// VRF and family: interfaces, counters and upcalls. Event-loop thread only.
#pragma once

#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"
#include "platform/net/VrfName.h"
#include "published/MfibRecords.h"
#include "published/Records.h"

namespace Published {

using MfibVifTable = MoxBrane::Table<MfibVif>;
using MfibCacheTable = MoxBrane::Table<MfibCache>;
using MfibUpcallTable = MoxBrane::Table<MfibUpcall>;
using MfibSettingTable = MoxBrane::Table<Setting>;

// clang-format off
#define PUBLISHED_MFIB_ATTRIBUTES( A ) \
   A( Table, vif,    Vif,    MfibVifTable,    , "interfaces that the kernel forwards between" ) \
   A( Table, cache,  Cache,  MfibCacheTable,  , "counters of the kernel's entries" ) \
   A( Table, upcall, Upcall, MfibUpcallTable, , "packets handed up; when full the oldest goes" ) \
   A( Table, setting, Setting, MfibSettingTable, , "how the process was started" )
// clang-format on

class PIMSM_API MfibStatus : public MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( MfibStatus, PUBLISHED_MFIB_ATTRIBUTES )

   static constexpr uint32_t maxUpcalls = 4096;
   // Settings: how often counters are published, s, "0" for never; and the number of
   // the kernel's table.
   static constexpr const char* countersSetting = "counters";
   static constexpr const char* tableSetting = "table";

   explicit MfibStatus( Mox::StringView name ) : MountedEntity( name ) {}

   static Mox::String mountPath( Vantu::AddressFamily family,
                                 const L3::VrfName& vrf );
   // `maxRoutes` is used by the writer only. Throws the exceptions of
   // CollectionControl::initialize.
   static Mox::Ptr<MfibStatus> mount( Corvex::EntityManager& manager,
                                      Mox::StringView path, Brane::TableRole role,
                                      uint32_t maxRoutes = 0 );

 protected:
   ~MfibStatus() override = default;
};

}
