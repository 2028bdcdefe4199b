#include "platform/base/Assert.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/ErrorText.h"

namespace Mox {
namespace {

void throwText( const char* text, const char*, int ) {
   throw std::logic_error( text );
}

TEST( AssertionDeathTest, TellsTheHandlerOrAbortsWithFileAndText ) {
   AssertionHandler former = assertionHandlerIs( throwText );
   int matches = 3;
   EXPECT_EQ( Mox::Test::errorText( [&] { MOX_ASSERT( matches == 4 ); } ),
              "matches == 4" );
   EXPECT_NO_THROW( MOX_ASSERT_TEXT( matches == 3, "unused" ) );
   EXPECT_EQ( assertionHandlerIs( former ), throwText );
   EXPECT_DEATH( MOX_ASSERT_TEXT( false, "Unsupported address family" ),
                 "AssertTest.cpp:.*assertion failed: Unsupported address family" );
}

}
}
