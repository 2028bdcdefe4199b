// The tables and the agent's counters as Prometheus metrics.
#pragma once

#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

// Never uses a group or source as a label. Unknown values are left out.
std::string metricsText( const Mirrors& mirrors, const char* version );

}
