// The register tables and the advertised (S,G) as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Registers.h"

namespace Show {

nlohmann::ordered_json registersJson( const Registers& selected );
nlohmann::ordered_json advertisedJson( const Advertised& selected );

}
