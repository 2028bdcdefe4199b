// The hash of a key: two lanes of 64 x 64 -> 128 bit multiplications, seeded by
// the file. Part of the file format.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

inline uint64_t fold( uint64_t a, uint64_t b ) {
   Wide product = static_cast<Wide>( a ) * b;
   return uint64_t( product ) ^ uint64_t( product >> 64 );
}

// size is a multiple of 8, and not 0.
inline uint64_t keyHash( const void* key, size_t size,
                         const uint64_t ( &seed )[2] ) {
   constexpr uint64_t p0 = 0xa0761d6478bd642f, p1 = 0xe7037ed1a0b428db;
   constexpr uint64_t p2 = 0x8ebc6af09c88c6e3, p3 = 0x589965cc75374cc3;
   uint64_t a = seed[0] ^ p0, b = seed[1] ^ p1;
   size_t words = size / 8, i = 0;
   for ( ; i + 4 <= words; i += 4 ) {
      a = fold( wordAt( key, i ) ^ p2, wordAt( key, i + 1 ) ^ a );
      b = fold( wordAt( key, i + 2 ) ^ p3, wordAt( key, i + 3 ) ^ b );
   }
   for ( ; i + 2 <= words; i += 2 ) {
      a = fold( wordAt( key, i ) ^ p2, wordAt( key, i + 1 ) ^ a );
   }
   if ( i < words ) b = fold( wordAt( key, i ) ^ p3, b ^ p0 );
   return fold( a ^ size ^ seed[1], b ^ p1 );
}

}
