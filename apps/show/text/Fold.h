// How wide what the tool prints may be.
#pragma once

#include <string>
#include <string_view>

namespace Show {

constexpr size_t noFold = std::string_view::npos;

// Columns of what standard output goes to: COLUMNS, else the terminal's; elsewhere
// nothing is folded, so that a thing stays a line.
size_t outputWidth();

// Each line of a text in as many as it takes to stay within `width` columns where
// blanks allow it. It goes on below the last column that begins in its left half, and is
// broken where a column begins, behind a comma outside parentheses, or at a '\t', which
// is a blank as good as these, rather than at another blank.
std::string folded( std::string_view text, size_t width );

}
