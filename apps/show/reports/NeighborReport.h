// The PIM neighbours, as their last hellos told.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/mirror/Selected.h"

namespace Show {

struct NeighborRow {
   Published::Neighbor record;
   std::optional<bool> dr;  // is it the link's DR? nothing: unknown
   std::vector<Vantu::IpGenAddr> addresses;  // secondary ones
};
using Neighbors = Selected<NeighborRow>;

// In order of interface and address. Of the filter, the interface counts.
Neighbors selectNeighbors( const Mirror& mirror, const RouteFilter& filter );

// A table with its heading. `now`: seconds, CLOCK_MONOTONIC.
std::string neighborsText( const Neighbors& selected, double now );
nlohmann::ordered_json neighborsJson( const Neighbors& selected, double now );

}
