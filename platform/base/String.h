// The string types of the whole tree.
#pragma once

#include <string>
#include <string_view>

namespace Mox {

using String = std::string;
using StringView = std::string_view;

// Parsers take a pair of these; the first by reference, and advance it.
using StringIter = const char*;

}
