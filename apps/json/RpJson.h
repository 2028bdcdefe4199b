// The ranges of groups and their RPs as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/RpRanges.h"

namespace Show {

// "source-specific"
const char* ruleText( Published::GroupRanges::Mapping::Rule rule );

// The members of a mapping.
void addMapping( nlohmann::ordered_json& json,
                 const Published::GroupRanges::Mapping& mapping );
nlohmann::ordered_json rpsJson( const RpRanges& selected );

}
