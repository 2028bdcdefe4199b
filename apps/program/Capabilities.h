// Giving up what the process may do beyond any other.
#pragma once

#include <initializer_list>

namespace Programs {

// All capabilities but those of `kept` that it has, of the bounding set too where that is
// permitted, and for good: no program that the process starts gains any. The kept ones are
// its own and pass to no other program. Throws std::runtime_error where another one stays.
void dropCapabilities( std::initializer_list<unsigned> kept = {} );

}
