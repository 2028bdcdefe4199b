// Commands by their beginnings.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Show {

// The command that the word is, or alone begins. Throws WrongUsage: for several such
// commands with all of them, for none with the nearest. REQUIRES: some command.
std::string commandOf( const std::string& word,
                       const std::vector<std::string_view>& commands );

}
