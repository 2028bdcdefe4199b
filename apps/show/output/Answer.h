// Prints a command's answer on standard output in the requested form.
#pragma once

#include <string>

#include "apps/mirror/Mirrors.h"
#include "apps/show/command/Arguments.h"

namespace Show {

// Returns the answer's status; `watch` runs until it is left. Throws OutputError,
// and Mox::RangeError when `explain` lacks an argument of its macro.
ExitStatus print( Mirrors& mirrors, const Arguments& arguments );

// Prints the event log; with `follow` runs until it is left. Throws as above.
ExitStatus printLog( const Arguments& arguments );

// Prints one line on standard error; returns `status`.
ExitStatus complain( ExitStatus status, const std::string& text );

}
