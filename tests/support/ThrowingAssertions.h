// While one lives, a fatal assertion throws AssertionFailure with its text instead
// of ending the process. An assertion comes before any change of state, so a test
// may use the model afterwards.
#pragma once

#include <stdexcept>

#include "platform/base/Assert.h"
#include "platform/base/String.h"

namespace Mox::Test {

class AssertionFailure : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};

class ThrowingAssertions {
 public:
   ThrowingAssertions() : former_( assertionHandlerIs( fail ) ) {}
   ~ThrowingAssertions() { assertionHandlerIs( former_ ); }
   ThrowingAssertions( const ThrowingAssertions& ) = delete;
   ThrowingAssertions& operator=( const ThrowingAssertions& ) = delete;

 private:
   [[noreturn]] static void fail( const char* text, const char*, int ) {
      throw AssertionFailure( text );
   }

   AssertionHandler former_;
};

// The text of the fatal assertion that `call` raises; "" when it returns.
template <class Call>
String assertionText( Call call ) {
   ThrowingAssertions throwing;
   try {
      call();
   } catch ( const AssertionFailure& failure ) {
      return failure.what();
   }
   return "";
}

}
