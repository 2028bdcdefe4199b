// Follows the tables until told to stop.
#pragma once

#include "apps/mirror/RouteFilter.h"

namespace Show {

enum WatchForm { watchScreen, watchText, watchJsonLines };

// Prints a line a change on standard output; or, as a screen, shows the matching
// routes live on the terminal. Returns on SIGINT and SIGTERM, when the lines have
// no reader any more, and on `q` at the screen.
void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form,
            const std::string& root );

}
