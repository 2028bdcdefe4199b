// Routes in the topology-tree-info of ietf-pim-base (RFC 9128), with `pimsm-state:`
// members for the rest. Values missing in the tables are left out.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Rates.h"
#include "apps/mirror/RouteFilter.h"

namespace Show {

// The matching routes' entries, in order. A (*,G) route's entry is of the RP tree,
// an (S,G) route's is not; its (S,G,rpt) state has an entry of its own. `now`:
// seconds, CLOCK_MONOTONIC. `rates`: with the counters of the traffic.
std::vector<nlohmann::ordered_json> routeEntries( const Mirror& mirror,
                                                  const RouteFilter& filter,
                                                  double now,
                                                  const Rates* rates = nullptr );

// The counters (null: unknown) and the rate of a stream, as far as they are known: no
// members without any.
nlohmann::ordered_json trafficJson( const Published::MfibCache* counters,
                                    const std::optional<Rate>& rate );

// The topology-tree-info with these entries.
nlohmann::ordered_json routesJson( const Mirror& mirror,
                                   std::vector<nlohmann::ordered_json> entries );

}
