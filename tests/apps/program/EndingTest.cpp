#include "apps/program/Ending.h"

#include <gtest/gtest.h>

#include <iostream>

#include "platform/shm/Error.h"

namespace Programs {
namespace {

using Work = std::function<ExitStatus()>;

TEST( Ending, EveryFailureHasItsStatus ) {
   const std::pair<int, Work> rows[] = {
      { 1, [] { return nothingFound; } },
      { 2, []() -> ExitStatus { throw WrongUsage( "x" ); } },
      { 6, []() -> ExitStatus { throw HeldByAnother( "x" ); } },
      { 6, []() -> ExitStatus { throw Brane::SecondWriterError( "x", 1 ); } },
      { 9, []() -> ExitStatus { throw std::bad_alloc(); } },
      { 9, []() -> ExitStatus { throw Brane::CreateError( "x" ); } } };
   for ( const auto& [status, work] : rows )
      EXPECT_EQ( ending( "test", work ), status );
   std::cout.setstate( std::ios::badbit );
   EXPECT_EQ( ending( "test", [] { return done; } ), 9 );
   std::cout.clear();
}

}
}
