// The seed of random tests.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

namespace Mox::Test {

// PIMSM_SEED, or a new one; printed.
inline unsigned seedOf() {
   const char* fixed = std::getenv( "PIMSM_SEED" );
   const unsigned seed =
      fixed != nullptr ? unsigned( std::atoi( fixed ) ) : std::random_device()();
   std::printf( "seed %u\n", seed );
   return seed;
}

}
