// The spread of the routes: the groups of each source, the sources of each group.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

// One mirror's part of `histogram`, counted by this process in its mirror: a
// heading, and bars for both histograms. More than 16 different counts are shown in
// ranges; JSON has each. The source of a (*,G) route is the unspecified address,
// counted and named as such. REQUIRES: the mirror is loaded.
std::string histogramText( const Mirror& mirror );
nlohmann::ordered_json histogramJson( const Mirror& mirror );

}
