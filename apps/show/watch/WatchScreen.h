// The live screen of `watch`.
#pragma once

#include "apps/mirror/RouteFilter.h"

namespace Show {

// REQUIRES: loaded mirrors; standard input and output are a terminal. Returns when
// the loop is stopped, by `q` among others. Throws WrongUsage for a terminal that
// cannot place text.
void watchOnScreen( Mirrors& mirrors, const RouteFilter& filter );

}
