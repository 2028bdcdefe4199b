// Drops the privileges of the process.
#pragma once

#include <initializer_list>

namespace Programs {

// Drops all capabilities except those of `kept` that the process has, for good, and
// also from the bounding set where permitted: no program that it starts gains any.
// The kept ones do not pass to other programs. Throws std::runtime_error when
// another one stays.
void dropCapabilities( std::initializer_list<unsigned> kept = {} );

}
