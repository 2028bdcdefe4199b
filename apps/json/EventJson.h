// A logged event as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Events.h"

namespace Show {

// Absent values are left out; times are UTC.
nlohmann::ordered_json eventJson( const Logged& logged );

}
