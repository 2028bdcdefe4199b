// The PIM neighbours of a mirror, as their last hellos told. A copy of the moment;
// event-loop thread only.
#pragma once

#include <optional>
#include <vector>

#include "apps/mirror/RouteFilter.h"
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

}
