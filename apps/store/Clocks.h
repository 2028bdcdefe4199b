// The time of threads that have no loop. Any thread.
#pragma once

#include <chrono>
#include <cstdint>

namespace Fleet {

// s, of the monotonic clock.
inline double steadyNow() {
   return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch() )
      .count();
}

// ms since 1970, of the system's clock.
inline int64_t systemNow() {
   return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch() )
      .count();
}

}
