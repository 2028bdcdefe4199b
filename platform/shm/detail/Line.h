// Finds a tag among the seven words of an index line without a branch for each
// word: its place cannot be predicted.
#pragma once

#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

// Bit i is set when word i has the tag. Tag zero finds free words. Each word is
// loaded whole, the line is not: the writer may store to it meanwhile.
inline uint32_t wordsWith( const uint64_t* line, uint64_t tag ) {
#if defined( __SSE2__ ) && !defined( PIMSM_SHM_TSAN )
   // The tags are in the words' low halves.
   auto* pairs = reinterpret_cast<const __m128*>( line );
   const __m128i wanted = _mm_set1_epi32( int( tag ) );
   const __m128i mask = _mm_set1_epi32( int( tagMask ) );
   auto half = [&]( __m128 first, __m128 second ) {
      __m128i low = _mm_castps_si128( _mm_shuffle_ps( first, second, 0x88 ) );
      __m128i equal = _mm_cmpeq_epi32( _mm_and_si128( low, mask ), wanted );
      return uint32_t( _mm_movemask_ps( _mm_castsi128_ps( equal ) ) );
   };
   uint32_t found = half( pairs[0], pairs[1] ) | half( pairs[2], pairs[3] ) << 4;
   __asm__ volatile( "" ::: "memory" );
   return found & 0x7f;
#else
   uint32_t found = 0;
   for ( uint32_t i = 0; i < wordsPerLine; ++i ) {
      found |= uint32_t( hasTag( loadWord( line + i ), tag ) ) << i;
   }
   return found;
#endif
}

// Removes the lowest set bit and returns its number.
inline uint32_t takeFirst( uint32_t& bits ) {
   auto first = uint32_t( __builtin_ctz( bits ) );
   bits &= bits - 1;
   return first;
}

}
