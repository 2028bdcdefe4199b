// Text from elsewhere, as a line that a terminal may be given.
#pragma once

#include <string>
#include <string_view>

namespace Programs {

// Control characters as \xNN: a name could clear the screen, or look like another line.
std::string printable( std::string_view text );

}
