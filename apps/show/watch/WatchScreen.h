// The live screen of `watch`: routes, and beside what has changed the reason.
#pragma once

#include "apps/mirror/RouteFilter.h"

namespace Show {

// `root`: of the event logs. REQUIRES: loaded mirrors; standard input and output are a terminal. Returns when
// the loop is stopped, by `q` among others. Throws WrongUsage for a terminal that
// cannot place text.
void watchOnScreen( Mirrors& mirrors, const RouteFilter& filter,
                    const std::string& root );

}
