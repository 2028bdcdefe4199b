// Giving up what the process may do beyond any other.
#pragma once

namespace Programs {

// All capabilities, of the bounding set too where that is permitted, and for good: no
// program that the process starts gains any. Throws std::runtime_error where one stays.
void dropCapabilities();

}
