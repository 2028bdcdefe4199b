// The live screen of `top`.
#pragma once

#include <optional>

#include "apps/show/reports/TopReport.h"

namespace Show {

// Reads and draws each interval, s: the first streams, or as many as the terminal
// holds. REQUIRES: loaded mirrors; standard input and output are a terminal. Returns on
// SIGINT, SIGTERM and `q`. Throws WrongUsage for a terminal that cannot place text.
void topOnScreen( Mirrors& mirrors, Top& top, double interval,
                  const std::optional<size_t>& first );

}
