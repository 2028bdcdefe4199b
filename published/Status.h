// The tables in which the agent publishes itself: FamilyStatus for a VRF and family,
// ProcessStatus for the whole process. Event-loop thread only.
#pragma once

#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"
#include "platform/mount/VrfPath.h"
#include "platform/net/VrfName.h"
#include "published/Records.h"

namespace Published {

using InterfaceTable = MoxBrane::Table<Interface>;
using OwnAddressTable = MoxBrane::Table<OwnAddress>;
using NeighborTable = MoxBrane::Table<Neighbor>;
using NeighborAddressTable = MoxBrane::Table<NeighborAddress>;
using DownstreamTable = MoxBrane::Table<Downstream>;
using RegisteringTable = MoxBrane::Table<Registering>;
using RpTable = MoxBrane::Table<Rp>;
using AccessRuleTable = MoxBrane::Table<AccessRule>;
using SettingTable = MoxBrane::Table<Setting>;
using CounterTable = MoxBrane::Table<Counter>;

// clang-format off
#define PUBLISHED_FAMILY_ATTRIBUTES( A ) \
   A( Table, interface,  Interface,  InterfaceTable,  , "interfaces that speak PIM, and those that are down" ) \
   A( Table, ownAddress, OwnAddress, OwnAddressTable, , "their addresses and subnets" ) \
   A( Table, neighbor,   Neighbor,   NeighborTable,   , "PIM neighbours; the next agent knows them from here" ) \
   A( Table, neighborAddress, NeighborAddress, NeighborAddressTable, , "their secondary addresses" ) \
   A( Table, downstream, Downstream, DownstreamTable, , "timers of route interfaces; the next agent goes on with them" ) \
   A( Table, registering, Registering, RegisteringTable, , "stopped registers; the next agent goes on with them" ) \
   A( Table, rp,         Rp,         RpTable,         , "configured RPs by group range" ) \
   A( Table, accessRule, AccessRule, AccessRuleTable, , "of the lists that settings name" ) \
   A( Table, setting,    Setting,    SettingTable,    , "other configuration" )

#define PUBLISHED_PROCESS_ATTRIBUTES( A ) \
   A( Table, counter, Counter, CounterTable, , "event counters of the process" )
// clang-format on

class PIMSM_API FamilyStatus : public MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( FamilyStatus, PUBLISHED_FAMILY_ATTRIBUTES )

   explicit FamilyStatus( Mox::StringView name )
      : MountedEntity( name, MoxBrane::besidePath( name, "status" ) ) {}

   static Mox::String mountPath( Vantu::AddressFamily family,
                                 const L3::VrfName& vrf );
   // `routeIntfs` is a writer's room for interfaces of routes; a reader takes the
   // table as it is. Throws the exceptions of CollectionControl::initialize.
   static Mox::Ptr<FamilyStatus> mount( Corvex::EntityManager& manager,
                                        Mox::StringView path, Brane::TableRole role,
                                        uint32_t routeIntfs = 0 );

 protected:
   ~FamilyStatus() override = default;
};

class PIMSM_API ProcessStatus : public MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( ProcessStatus, PUBLISHED_PROCESS_ATTRIBUTES )

   static constexpr const char* mountPath = "routing/pim/agent";
   // Of the forwarding process.
   static constexpr const char* mfibPath = "routing/pim/mfib";

   explicit ProcessStatus( Mox::StringView name ) : MountedEntity( name ) {}

   static Mox::Ptr<ProcessStatus> mount( Corvex::EntityManager& manager,
                                         Brane::TableRole role );
   static Mox::Ptr<ProcessStatus> mountAt( Corvex::EntityManager& manager,
                                           Brane::TableRole role,
                                           Mox::StringView path );

 protected:
   ~ProcessStatus() override = default;
};

}
