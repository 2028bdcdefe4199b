// Limits the width of the tool's output.
#pragma once

#include <string>
#include <string_view>

namespace Show {

constexpr size_t noFold = std::string_view::npos;

// The columns of standard output: COLUMNS, otherwise the terminal's. Other output
// is not folded, so that each item stays one line.
size_t outputWidth();

// Folds each line of a text to `width` columns where blanks allow it. Continuations
// start below the last column that begins in the line's left half. A line is
// preferably broken where a column begins, behind a comma outside parentheses, or
// at a '\t', which prints as a blank; never inside a route, "(S, G)".
std::string folded( std::string_view text, size_t width );

}
