#include "platform/base/Assert.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Mox {
namespace {

void throwText( const char* text, const char*, int ) {
   throw std::logic_error( text );
}

TEST( Assertion, HandlerGetsTheConditionTextAndCanBeRestored ) {
   AssertionHandler former = assertionHandlerIs( throwText );
   int matches = 3;
   try {
      MOX_ASSERT( matches == 4 );
      ADD_FAILURE() << "no failure";
   } catch ( const std::logic_error& e ) {
      EXPECT_STREQ( e.what(), "matches == 4" );
   }
   EXPECT_NO_THROW( MOX_ASSERT_TEXT( matches == 3, "unused" ) );
   EXPECT_EQ( assertionHandlerIs( former ), throwText );
}

TEST( AssertionDeathTest, AbortsWithFileAndText ) {
   EXPECT_DEATH( MOX_ASSERT_TEXT( false, "Unsupported address family" ),
                 "AssertTest.cpp:.*assertion failed: Unsupported address family" );
}

}
}
