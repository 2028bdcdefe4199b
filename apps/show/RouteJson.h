// Routes as JSON: names of ietf-pim-base where it has them (RFC 9128),
// `pimsm-state:` members for the rest. What the tables do not tell is left out.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/show/RouteFilter.h"

namespace Show {

// One mirror's envelope: vrf, family, writer, data.
nlohmann::ordered_json envelope( const Mirror& mirror,
                                 nlohmann::ordered_json data );

// The matching routes, an (S,G) route with (S,G,rpt) state as a second entry.
nlohmann::ordered_json routesJson( const Mirror& mirror, const RouteFilter& filter,
                                   double now );

}
