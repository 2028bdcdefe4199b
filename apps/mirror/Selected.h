// What of a table the user asks for.
#pragma once

#include <vector>

#include "apps/mirror/RouteFilter.h"

namespace Show {

// The matching rows of a mirror in the order shown, and the number of all.
template <class Row>
struct Selected {
   std::vector<Row> rows;
   size_t all = 0;
   bool known = true;  // false: the agent publishes nothing of the kind
};

}
