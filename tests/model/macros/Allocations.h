// Counts the calls of operator new in this program.
#pragma once

#include <cstdint>

namespace Routing::Pim::SparseMode::Test {

extern uint64_t allocations;

}
