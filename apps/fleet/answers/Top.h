// `top`: the fastest streams over all routers.
#pragma once

#include "apps/fleet/answers/Routers.h"

namespace Fleet {

struct FleetStream {
   std::string vrf;
   std::string group, source;
   std::string fastest;               // the router where its rate is the greatest
   double bits = 0.0, packets = 0.0;  // a second, there
   uint64_t count = 0;                // packets, there
   size_t routers = 0;                // that list it
};

enum class TopBy { rate, packets, routers };

// In that order, the first ones.
std::vector<FleetStream> topStreams( Reader& reader,
                                     const std::vector<Router>& routers,
                                     const Wanted& wanted, TopBy by, size_t first );
std::string topText( const std::vector<FleetStream>& streams );
nlohmann::ordered_json topJson( const std::vector<FleetStream>& streams );

}
