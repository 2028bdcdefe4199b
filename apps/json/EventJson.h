// A logged event as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Events.h"

namespace Show {

// Absent values are left out; times are UTC. The sequence counts in its log.
nlohmann::ordered_json eventJson( const Logged& logged );

// The event of such an object, without its times; what is missing or no value of its
// member stays at its default.
Published::Event eventOf( const nlohmann::ordered_json& json );

}
