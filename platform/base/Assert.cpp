#include "platform/base/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Mox {
namespace {

void printFailure( const char* text, const char* file, int line ) {
   std::fprintf( stderr, "%s:%d: assertion failed: %s\n", file, line, text );
}

AssertionHandler handler = printFailure;

}

AssertionHandler assertionHandlerIs( AssertionHandler replacement ) {
   AssertionHandler former = handler;
   handler = replacement != nullptr ? replacement : printFailure;
   return former;
}

void assertionFailed( const char* text, const char* file, int line ) {
   handler( text, file, line );
   std::abort();
}

}
