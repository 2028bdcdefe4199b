// Explains one macro's answer step by step, with its fields.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/show/reports/Explain.h"

namespace Show {

// REQUIRES: knows() and a macro. Throw NameError or RangeError for a macro that
// does not exist, does not suit the route, or lacks its argument.
std::string derivationText( const Mirror& mirror, const Question& question );
nlohmann::ordered_json derivationJson( const Mirror& mirror,
                                       const Question& question );

}
