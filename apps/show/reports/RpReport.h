// The rendezvous points by group range, and the one of a single group.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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
std::string rpsText( const RpRanges& selected );
nlohmann::ordered_json rpsJson( const RpRanges& selected );

// The RP of one group.
struct GroupRp {
   Vantu::IpGenAddr group;
   Published::GroupRanges::Mapping mapping;
};
GroupRp groupRp( const Mirror& mirror, const Vantu::IpGenAddr& group );
// "239.1.2.3 has RP 192.0.2.9, another router, by the range 239.0.0.0/8"
std::string groupRpText( const GroupRp& found );
nlohmann::ordered_json groupRpJson( const GroupRp& found );

}
