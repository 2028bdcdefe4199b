// The seed of random tests, and their length.
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

// How much of a random walk is worth its time: a tenth where sanitizers slow it down.
constexpr int stepsOf( int plain ) {
#ifdef PIMSM_SANITIZED
   return plain / 10;
#else
   return plain;
#endif
}

}
