// The keys that have changed since the last review. Observers are notified of each
// newly marked or unmarked key; marking a marked key again is silent.
#pragma once

#include "export/DirtyKeys.h"
#include "platform/entity/Attribute.h"
#include "platform/pim/RouteKey.h"

namespace Routing::Pim::SparseMode::Brane {

using DirtyRoutes = DirtyKeys<RouteKey>;
using DirtyRouteIntfs = DirtyKeys<RouteIntfKey>;

// clang-format off
#define PIMSM_ROUTE_CHANGE_SET_ATTRIBUTES( A ) \
   A( ValueMap, route,     Route,     DirtyRoutes,     , "true: dirty" ) \
   A( ValueMap, routeIntf, RouteIntf, DirtyRouteIntfs, , "true: dirty" ) \
   A( Computed, empty,     Empty,     bool,            , "no entries at all" )
// clang-format on

class PIMSM_API RouteChangeSet : public Mox::Entity {
 public:
   MOX_ENTITY( RouteChangeSet, PIMSM_ROUTE_CHANGE_SET_ATTRIBUTES )

   bool empty() const { return route().empty() && routeIntf().empty(); }

   // Notifies the observers of a key, marked or not.
   void routeNotify( const RouteKey& key );
   void routeIntfNotify( const RouteIntfKey& key );

 protected:
   ~RouteChangeSet() override = default;
};

PIMSM_API Mox::Ptr<RouteChangeSet> routeChangeSetFactory();

}
