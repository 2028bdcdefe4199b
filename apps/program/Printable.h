// Makes foreign text safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace Programs {

// Writes control characters as \xNN: a name could clear the screen, or look like
// another line.
std::string printable( std::string_view text );

}
