// What a command answers, printed on standard output in the form that was asked for.
#pragma once

#include <string>

#include "apps/mirror/Mirrors.h"
#include "apps/show/command/Arguments.h"

namespace Show {

// The status as far as the answer goes; `watch` answers until it is left. Throws
// OutputError, and Mox::RangeError where `explain` lacks an argument of its macro.
ExitStatus print( Mirrors& mirrors, const Arguments& arguments );

// One line on standard error; returns `status`.
ExitStatus complain( ExitStatus status, const std::string& text );

}
