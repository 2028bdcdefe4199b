// Routes as the topology-tree-info of ietf-pim-base (RFC 9128) has them, with
// `pimsm-state:` members for the rest. What the tables do not tell is left out.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/RouteFilter.h"

namespace Show {

// The matching routes' entries, in order: a (*,G) route's is of the RP tree, an (S,G)
// route's is not; its (S,G,rpt) state, where there is any, has a second entry. `now`:
// seconds, CLOCK_MONOTONIC.
std::vector<nlohmann::ordered_json> routeEntries( const Mirror& mirror,
                                                  const RouteFilter& filter,
                                                  double now );

// topology-tree-info with these entries.
nlohmann::ordered_json routesJson( const Mirror& mirror,
                                   std::vector<nlohmann::ordered_json> entries );

}
