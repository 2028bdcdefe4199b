// The checks of a fuzz target; a failed check ends the program with its text.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK( condition )                                                  \
   do {                                                                          \
      if ( !( condition ) ) {                                                    \
         std::fprintf( stderr, "%s:%d: demand broken: %s\n", __FILE__, __LINE__, \
                       #condition );                                             \
         std::abort();                                                           \
      }                                                                          \
   } while ( false )
