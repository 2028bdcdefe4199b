// Texts of a picture: whatever a store calls its routers, they stay text.
#pragma once

#include <string>

namespace Fleet {

// In all of them control characters become printable, and what is no UTF-8 that XML may
// have a question mark.

// REQUIRES: such a text.
size_t letters( const std::string& line );
// At most 30 letters, the last one an ellipsis where some are left out.
std::string shortened( const std::string& line );
// For SVG and HTML, in attributes too.
std::string escaped( const std::string& line );

}
