// `routes`: the routes of routers, from a store.
#pragma once

#include "apps/fleet/answers/Routers.h"
#include "apps/mirror/RouteFilter.h"

namespace Fleet {

// The matching entries of a router's VRF and family, as `pimsm-show routes --json` prints
// them, but for times of joins.
struct StoredRoutes {
   Scope scope;
   std::vector<nlohmann::ordered_json> entries;
   size_t matching = 0, all = 0;  // routes
   size_t unreadable = 0;
   std::string writer;  // "running", "gone"; empty: unknown
};

// In order of VRF and family; then group, source.
std::vector<StoredRoutes> storedRoutes( Reader& reader, const std::string& router,
                                        const Wanted& wanted,
                                        const Show::RouteFilter& filter );

// `now`: ms since 1970.
std::string routesText( const std::string& router, const StoredRoutes& routes,
                        int64_t now, bool oneline );
nlohmann::ordered_json routesJson( const std::string& router, StoredRoutes routes );

}
