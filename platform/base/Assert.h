// Fatal assertions: a broken contract ends the process with the condition's text.
//
// An assertion comes before any change of state, and nothing that can assert is
// noexcept, so that the throwing handler of the tests leaves a consistent model.
#pragma once

#include "platform/base/Export.h"

namespace Mox {

// Gets the text of the failed condition and its file and line. May throw. The
// process aborts when it returns.
using AssertionHandler = void ( * )( const char* text, const char* file, int line );

// Replaces the handler and returns the former one; null restores the default,
// which prints "file:line: assertion failed: text" on standard error.
PIMSM_API AssertionHandler assertionHandlerIs( AssertionHandler handler );

[[noreturn]] PIMSM_API void assertionFailed( const char* text, const char* file,
                                             int line );

}

#define MOX_ASSERT( condition ) MOX_ASSERT_TEXT( condition, #condition )

// The same with `text` in place of the condition's own.
#define MOX_ASSERT_TEXT( condition, text )                   \
   ( __builtin_expect( !( condition ), 0 )                   \
        ? ::Mox::assertionFailed( text, __FILE__, __LINE__ ) \
        : void() )
