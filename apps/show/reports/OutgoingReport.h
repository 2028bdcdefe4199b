// Why an interface forwards a route's traffic or not, term by term.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Olist.h"

namespace Show {

// REQUIRES: the interface has a route, both of the mirror. `now`: seconds,
// CLOCK_MONOTONIC.
std::string outgoingText( const Mirror& mirror,
                          const Routing::Pim::SparseMode::Intf& intf, double now );
// What is not known is left out.
nlohmann::ordered_json outgoingJson( const Mirror& mirror,
                                     const Routing::Pim::SparseMode::Intf& intf );

}
