// Explains term by term why an interface forwards a route's traffic or not.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Olist.h"

namespace Show {

// REQUIRES: the interface has a route, both of the mirror. `now`: seconds,
// CLOCK_MONOTONIC.
std::string outgoingText( const Mirror& mirror,
                          const Routing::Pim::SparseMode::Intf& intf, double now );
// Unknown values are left out.
nlohmann::ordered_json outgoingJson( const Mirror& mirror,
                                     const Routing::Pim::SparseMode::Intf& intf );

}
