// The PIM neighbours, as their last hellos told.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Neighbors.h"

namespace Show {

// A table with its heading. `now`: seconds, CLOCK_MONOTONIC.
std::string neighborsText( const Neighbors& selected, double now );
nlohmann::ordered_json neighborsJson( const Neighbors& selected, double now );

}
