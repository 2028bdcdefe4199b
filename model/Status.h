// The PIM sparse-mode state of one VRF and address family: its routes and sources.
//
// Created by StatusColl::vrfStatusIs or statusFactory. Stores and notifies; it
// enforces nothing: deliberately, neither limit is consulted when routes or
// interfaces are created, and the counters sgRoutes and wcRoutes are kept by the
// reader of the exported tables alone. Event-loop thread only.
// Teardown: all routes, then all sources are removed, each notified, then observers
// are dropped. Reactors hold counted references to their arguments, so a Status
// outlives its reactors. A route that is still held loses its back pointer.
#pragma once

#include "model/Route.h"
#include "model/Source.h"
#include "platform/net/VrfName.h"
#include "platform/pim/PimStatus.h"

namespace Routing::Pim::SparseMode {

using RouteMap = Mox::HashedMap<RouteKey, Route>;
using SourceMap = Mox::OrderedMap<Vantu::IpGenAddr, Source>;

// clang-format off
#define PIMSM_STATUS_ATTRIBUTES( A ) \
   A( Fixed,   vrfName,       VrfName,       L3::VrfName, ,       "key" ) \
   A( Value,   maxRoutes,     MaxRoutes,     uint32_t,    10000,  "configured limit; stored only" ) \
   A( Value,   maxRouteIntfs, MaxRouteIntfs, uint32_t,    600000, "configured limit; stored only" ) \
   A( ReactingMap, route,     Route,         RouteMap,    ,       "(*,G) and (S,G) routes" ) \
   A( Counter, sgRoutes,      SgRoutes,      uint32_t,    0,      "(S,G) routes, kept by the reader" ) \
   A( Counter, wcRoutes,      WcRoutes,      uint32_t,    0,      "(*,G) routes, kept by the reader" ) \
   A( Map,     source,        Source,        SourceMap,   ,       "sources, ascending by address" ) \
   A( View,    pimStatus,     PimStatus,     Routing::Pim::Status, , "PIM interfaces of the VRF; null: unknown" ) \
   A( Value,   wcProgrammingSupported, WcProgrammingSupported, bool, false, "(*,G) routes can be programmed" ) \
   A( Value,   initialized,   Initialized,   bool,        false,  "the VRF's state is set up; goes true once" ) \
   A( Value,   disableMbb,    DisableMbb,    bool,        false,  "no make-before-break interface switching" )
// clang-format on

class PIMSM_API Status : public Mox::Entity {
 public:
   MOX_ENTITY( Status, PIMSM_STATUS_ATTRIBUTES )

   explicit Status( const L3::VrfName& vrfName ) : vrfName_( vrfName ) {}

   const L3::VrfName& mapKey() const { return vrfName_; }

 protected:
   ~Status() override;
   void handleZeroReferences() override;

 private:
   friend class SparseMode::Route;

   Mox::Ptr<SparseMode::Route> newRoute( const RouteKey& key ) {
      return new SparseMode::Route( key, this, SparseMode::Route::ForCollection() );
   }
   void handleRouteDel( SparseMode::Route& removed );
   Mox::Ptr<SparseMode::Source> newSource( const Vantu::IpGenAddr& address ) {
      return new SparseMode::Source( address );
   }

   Mox::Strays<SparseMode::Route> strays_;
};

PIMSM_API Mox::Ptr<Status> statusFactory( const L3::VrfName& vrfName );

}
