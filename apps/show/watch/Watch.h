// Follows the tables until told to stop.
#pragma once

#include "apps/mirror/RouteFilter.h"

namespace Show {

enum WatchForm { watchScreen, watchText, watchJsonLines };

// A line a change, on standard output; or, in the form of a screen, the matching routes
// live on the terminal. Returns on SIGINT, SIGTERM, when nobody reads the lines any
// more, and on `q` at the screen.
void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form );

}
