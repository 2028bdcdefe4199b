// The exported tables of one VRF and address family: routes, their interfaces, and
// counters of routes.
//
// The agent mounts them as writer and keeps `route` and `routeIntf` in step with
// the model by RouteBraneWriterSm; other processes mount them as readers. The
// library never writes routeCounter: the process that counts does. Event-loop
// thread only.
#pragma once

#include "export/FlatRecords.h"
#include "model/Status.h"
#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"

namespace Routing::Pim::SparseMode::Brane {

using RouteTable = ::MoxBrane::Table<Brane::Route>;
using RouteIntfTable = ::MoxBrane::Table<Brane::Intf>;
using RouteCounterTable = ::MoxBrane::Table<Brane::RouteCounter>;

// clang-format off
#define PIMSM_BRANE_STATUS_ATTRIBUTES( A ) \
   A( Table, route,        Route,        RouteTable,        , "by RouteKey" ) \
   A( Table, routeIntf,    RouteIntf,    RouteIntfTable,    , "by RouteIntfKey" ) \
   A( Table, routeCounter, RouteCounter, RouteCounterTable, ::MoxBrane::withZeroKey(), "by RouteCounterKey" ) \
   A( Computed, routeControl,        RouteControl,        ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, routeIntfControl,    RouteIntfControl,    ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, routeCounterControl, RouteCounterControl, ::MoxBrane::CollectionControl, , "mounting handle" ) \
   A( Computed, unresolvedRoutes,    UnresolvedRoutes,    uint32_t, , "of routeCounter" ) \
   A( Computed, toBeDeletedRoutes,   ToBeDeletedRoutes,   uint32_t, , "of routeCounter" ) \
   A( Computed, switchingRoutes,     SwitchingRoutes,     uint32_t, , "of routeCounter" )
// clang-format on

class PIMSM_API Status : public ::MoxBrane::MountedEntity {
 public:
   MOX_ENTITY( Status, PIMSM_BRANE_STATUS_ATTRIBUTES )

   // Makes an unmounted entity; use mountInDependencyOrder.
   explicit Status( Mox::StringView name ) : MountedEntity( name ) {}

   // Where the tables of a VRF are mounted. A family other than the two is fatal,
   // "Unsupported address family". Throws RangeError for a VRF name that cannot be
   // part of a path: empty, ".", "..", or with a slash or NUL.
   static Mox::String mountPath( Vantu::AddressFamily family,
                                 const L3::VrfName& vrf );

   // Finds or creates the entity at the path and initialises its tables for the
   // role. As writer: route, routeIntf, routeCounter, sized by the model's limits;
   // the route table comes before that of its interfaces. REQUIRES: status. In
   // another role: in reverse order, without status; nothing happens while the
   // manager's attachSuspended is set. Throws the exceptions of
   // CollectionControl::initialize.
   static Mox::Ptr<Status> mountInDependencyOrder(
      Corvex::EntityManager& manager, Mox::StringView path,
      ::Brane::TableRole tableRole,
      const Mox::Ptr<const SparseMode::Status>& status );

   // Counts of routes from the counting process; 0 until it publishes them, and
   // while their record cannot be read, which routeCounter( key ) distinguishes.
   uint32_t unresolvedRoutes() const { return counted( unresolved ); }
   uint32_t toBeDeletedRoutes() const { return counted( toBeDeleted ); }
   uint32_t switchingRoutes() const { return counted( switching ); }

 protected:
   ~Status() override = default;

 private:
   uint32_t counted( RouteCounterType type ) const;
};

PIMSM_API Mox::Ptr<Status> statusFactory( Mox::StringView name );

}
