// How one macro came to its answer, step by step, with its fields.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/show/reports/Explain.h"

namespace Show {

// REQUIRES: knows() and a macro. Throw NameError or RangeError for a macro that is not
// there, not for this route, or without its argument.
std::string derivationText( const Mirror& mirror, const Question& question );
nlohmann::ordered_json derivationJson( const Mirror& mirror,
                                       const Question& question );

}
