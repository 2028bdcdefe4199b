// Fetches memory for a load to come.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Mox {

// Fetches the cache lines of `size` bytes; any address will do. Written in
// assembler because GCC drops the calls of a function that only prefetches.
inline void prefetch( const void* at, size_t size = 1 ) {
   constexpr size_t kLine = 64;
   auto line = reinterpret_cast<uintptr_t>( at );
   const uintptr_t end = line + size;
   line -= line % kLine;
   for ( ; line < end; line += kLine ) {
      auto* bytes = reinterpret_cast<const char*>( line );
#if defined( __x86_64__ )
      __asm__ volatile( "prefetcht0 %0" : : "m"( *bytes ) );
#else
      __builtin_prefetch( bytes, 0, 3 );
#endif
   }
}

}
