// In an instrumented build, each changed expression asks here which text holds. Read by
// every unit of that build in front of its own includes; see tools/mutate.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace PimsmMutate {

// PIMSM_MUTANT is the number of the mutant chosen, 0 or absent: none.
// PIMSM_MUTANTS_REACHED is a file with a byte for each number, absent: not wanted. It is
// mapped, so that a process that dies still tells where it came.
struct Choice {
   unsigned chosen = 0;
   volatile unsigned char* reached = nullptr;

   Choice() {
      if ( const char* number = std::getenv( "PIMSM_MUTANT" ) )
         chosen = static_cast<unsigned>( std::atoi( number ) );
      const char* path = std::getenv( "PIMSM_MUTANTS_REACHED" );
      const int fd = path != nullptr ? open( path, O_RDWR | O_CLOEXEC ) : -1;
      if ( fd < 0 ) return;
      const auto size = static_cast<size_t>( lseek( fd, 0, SEEK_END ) );
      void* mapped =
         mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0 );
      close( fd );
      if ( mapped != MAP_FAILED ) reached = static_cast<unsigned char*>( mapped );
   }
};

inline const Choice choice;

}

// A constant expression takes the original: it has its value before anything is chosen.
constexpr bool pimsmMutant( unsigned number ) {
   if ( __builtin_is_constant_evaluated() ) return false;
   if ( PimsmMutate::choice.reached != nullptr )
      PimsmMutate::choice.reached[number] = 1;
   return PimsmMutate::choice.chosen == number;
}
