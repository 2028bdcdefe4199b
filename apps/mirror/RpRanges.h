// The ranges of groups that the agent publishes, with their rendezvous points. A copy of
// the moment; event-loop thread only.
#pragma once

#include <string>

#include "apps/mirror/RouteFilter.h"
#include "apps/mirror/Selected.h"
#include "published/GroupRanges.h"

namespace Show {

// A range and what its groups have.
struct RpRow {
   std::string groups;  // "239.0.0.0/8"; "list NAME" for those that a list permits
   Published::GroupRanges::Mapping mapping;  // an embedded RP has no address here
};
using RpRanges = Selected<RpRow>;

// Of the filter, the groups count: ranges that have some of them.
RpRanges selectRps( const Mirror& mirror, const RouteFilter& filter );
}
