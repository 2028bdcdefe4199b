// Every store to shared memory goes through here, so that a test can inspect the
// memory after each one. So does every load of a word that may change meanwhile.
//
// Records are copied in words of 16 bytes. The thread sanitizer wants each word
// atomic and knows no fences: with it, words are 8 bytes and carry the order
// themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

#if defined( __SANITIZE_THREAD__ )
#define PIMSM_SHM_TSAN 1
#elif defined( __has_feature )
#if __has_feature( thread_sanitizer )
#define PIMSM_SHM_TSAN 1
#endif
#endif

// For the functions that run for each record: a call would cost as much as the
// body.
#define PIMSM_SHM_HOT __attribute__( ( always_inline ) ) inline

namespace Brane::Detail {

__extension__ using Wide = unsigned __int128;

#ifdef PIMSM_SHM_STORE_HOOK
// Called after each store. Only the library that tests link is compiled so.
extern void ( *storeHook )();
inline void stored() {
   if ( storeHook ) storeHook();
}
#else
inline void stored() {}
#endif

inline uint64_t loadWord( const uint64_t* from ) {
   return __atomic_load_n( from, __ATOMIC_ACQUIRE );
}

inline void storeWord( uint64_t* to, uint64_t value ) {
   __atomic_store_n( to, value, __ATOMIC_RELEASE );
   stored();
}

// Forbids that a store below becomes visible before a store above.
inline void storeFence() {
#ifndef PIMSM_SHM_TSAN
   __atomic_thread_fence( __ATOMIC_RELEASE );
   __asm__ volatile( "" ::: "memory" );
#endif
}

// Forbids that a load below is made before a load above.
inline void loadFence() {
#ifndef PIMSM_SHM_TSAN
   __atomic_thread_fence( __ATOMIC_ACQUIRE );
   __asm__ volatile( "" ::: "memory" );
#endif
}

// Copies two words in, as one store where the machine can. `to` is aligned to 16,
// `from` need not be.
inline void storePair( std::byte* to, const void* from ) {
#if defined( __SSE2__ ) && !defined( PIMSM_SHM_TSAN )
   _mm_store_si128( reinterpret_cast<__m128i*>( to ),
                    _mm_loadu_si128( static_cast<const __m128i*>( from ) ) );
   stored();
#else
   uint64_t words[2];
   std::memcpy( words, from, sizeof( words ) );
   for ( int i = 0; i < 2; ++i ) {
      __atomic_store_n( reinterpret_cast<uint64_t*>( to ) + i, words[i],
                        __ATOMIC_RELEASE );
      stored();
   }
#endif
}

inline uint64_t wordAt( const void* from, size_t index ) {
   uint64_t word;
   std::memcpy( &word, static_cast<const std::byte*>( from ) + 8 * index, 8 );
   return word;
}

// Size is a multiple of 8, and not 0.
PIMSM_SHM_HOT bool sameBytes( const void* a, const void* b, size_t size ) {
   size_t i = 0, words = size / 8;
   uint64_t difference = 0;
#if defined( __SSE2__ )
   auto pair = [&i]( const void* from ) {
      auto* bytes = static_cast<const std::byte*>( from ) + 8 * i;
      return _mm_loadu_si128( reinterpret_cast<const __m128i*>( bytes ) );
   };
   __m128i same = _mm_set1_epi32( -1 );
   for ( ; i + 2 <= words; i += 2 ) {
      same = _mm_and_si128( same, _mm_cmpeq_epi32( pair( a ), pair( b ) ) );
   }
   difference = uint64_t( _mm_movemask_epi8( same ) ^ 0xffff );
#endif
   for ( ; i < words; ++i ) difference |= wordAt( a, i ) ^ wordAt( b, i );
   return difference == 0;
}

// Copies out of a mapping that may change meanwhile. `from` is aligned to 16, `to`
// need not be; size is a multiple of 8.
inline void copyOut( void* to, const std::byte* from, size_t size ) {
   auto* out = static_cast<std::byte*>( to );
#if defined( __SSE2__ ) && !defined( PIMSM_SHM_TSAN )
   auto load = [from]( size_t at ) {
      return _mm_load_si128( reinterpret_cast<const __m128i*>( from + at ) );
   };
   auto store = [out]( size_t at, __m128i word ) {
      _mm_storeu_si128( reinterpret_cast<__m128i*>( out + at ), word );
   };
   size_t at = 0;
   for ( ; at + 64 <= size; at += 64 ) {
      __m128i a = load( at ), b = load( at + 16 );
      __m128i c = load( at + 32 ), d = load( at + 48 );
      store( at, a );
      store( at + 16, b );
      store( at + 32, c );
      store( at + 48, d );
   }
   for ( ; at + 16 <= size; at += 16 ) store( at, load( at ) );
   if ( at < size ) {
      uint64_t word = *reinterpret_cast<const volatile uint64_t*>( from + at );
      std::memcpy( out + at, &word, 8 );
   }
#else
   for ( size_t at = 0; at < size; at += 8 ) {
      uint64_t word = loadWord( reinterpret_cast<const uint64_t*>( from + at ) );
      std::memcpy( out + at, &word, 8 );
   }
#endif
}

// Fetches the memory for a load or a store to come. Written in assembler because
// GCC drops the calls of a function that only prefetches.
inline void prefetch( const std::byte* at, size_t size ) {
   for ( size_t line = 0; line < size; line += 64 ) {
#if defined( __x86_64__ )
      __asm__ volatile( "prefetcht0 %0" : : "m"( at[line] ) );
#else
      __builtin_prefetch( at + line, 0, 3 );
#endif
   }
}
inline void prefetchForStore( const std::byte* at, size_t size ) {
   for ( size_t line = 0; line < size; line += 64 ) {
#if defined( __x86_64__ )
      // Does nothing on processors without this instruction.
      __asm__ volatile( "prefetchw %0" : : "m"( at[line] ) );
#else
      __builtin_prefetch( at + line, 1, 3 );
#endif
   }
}

}
