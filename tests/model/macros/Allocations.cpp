#include "tests/model/macros/Allocations.h"

#include <cstdlib>
#include <new>

namespace Routing::Pim::SparseMode::Test {

uint64_t allocations = 0;

}

void* operator new( size_t size ) {
   ++Routing::Pim::SparseMode::Test::allocations;
   if ( void* memory = std::malloc( size ) ) return memory;
   throw std::bad_alloc();
}
// The library's algorithms use this one, and the delete below.
void* operator new( size_t size, const std::nothrow_t& ) noexcept {
   ++Routing::Pim::SparseMode::Test::allocations;
   return std::malloc( size );
}
void operator delete( void* memory ) noexcept {
   std::free( memory );
}
void operator delete( void* memory, size_t ) noexcept {
   std::free( memory );
}
