// The rendezvous points by group range, and the one of a single group.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/RpRanges.h"

namespace Show {

std::string rpsText( const RpRanges& selected );

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
