// Fetches memory for a load to come.
#pragma once

#include <cstddef>

namespace Mox {

// The cache lines from `at` on. Any address will do. In assembler: GCC takes a
// function that only prefetches for one without effect and drops its calls.
inline void prefetch( const void* at, size_t size = 1 ) {
   auto* bytes = static_cast<const char*>( at );
   for ( size_t line = 0; line < size; line += 64 ) {
#if defined( __x86_64__ )
      __asm__ volatile( "prefetcht0 %0" : : "m"( bytes[line] ) );
#else
      __builtin_prefetch( bytes + line, 0, 3 );
#endif
   }
}

}
