// Conversions between the model and the exported records.
#pragma once

#include "export/Records.h"

namespace Routing::Pim::SparseMode::Brane {

// The record of the model's route or interface in its present state.
PIMSM_API Brane::Route doGetBraneRouteFromRoute( const SparseMode::Route& route );
PIMSM_API Brane::Intf doGetBraneIntfFromRouteIntf( const RouteKey& routeKey,
                                                   const SparseMode::Intf& intf );

// Copy a record into the model; each setter notifies only what changes. A default
// rpfFrr removes the route's umhFrr, any other creates it when absent.
PIMSM_API void doUpdateRoute( SparseMode::Route& route,
                              const Brane::Route& record );
PIMSM_API void doUpdateIntf( SparseMode::Intf& intf, const Brane::Intf& record );

}
