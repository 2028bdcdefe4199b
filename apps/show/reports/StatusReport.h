// The tables of each VRF: their fill, their writer, and pending routes.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

std::string statusText( const Mirror& mirror );
nlohmann::ordered_json statusJson( const Mirror& mirror );

}
