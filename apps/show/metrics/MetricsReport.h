// What the tables and the agent's counters come to, as Prometheus reads it.
#pragma once

#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

// Never a group or source as a label. What is not known is left out.
std::string metricsText( const Mirrors& mirrors, const char* version );

}
