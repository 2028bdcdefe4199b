// Routes in the topology-tree-info of ietf-pim-base (RFC 9128), with `pimsm-state:`
// members for the rest. Values missing in the tables are left out.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/RouteFilter.h"

namespace Show {

// The matching routes' entries, in order. A (*,G) route's entry is of the RP tree,
// an (S,G) route's is not; its (S,G,rpt) state has an entry of its own. `now`:
// seconds, CLOCK_MONOTONIC.
std::vector<nlohmann::ordered_json> routeEntries( const Mirror& mirror,
                                                  const RouteFilter& filter,
                                                  double now );

// The topology-tree-info with these entries.
nlohmann::ordered_json routesJson( const Mirror& mirror,
                                   std::vector<nlohmann::ordered_json> entries );

}
