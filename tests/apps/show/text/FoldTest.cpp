#include "apps/show/text/Fold.h"

#include <gtest/gtest.h>

namespace Show {
namespace {

// At a width of 20 columns.
TEST( Folded, BreaksWhereItReadsBest ) {
   const std::pair<const char*, const char*> rows[] = {
      { "", "" },
      { "\n\n", "\n\n" },
      { "of twenty columns, x", "of twenty columns, x\n" },
      { "trailing            \n", "trailing\n" },
      // at a column, below the last that begins in the left half
      { "  a  bb  ccccc  ddddd  eeeee\nnext",
        "  a  bb  ccccc\n         ddddd\n         eeeee\nnext\n" },
      { "  a    b c d, e f g h i", "  a    b c d,\n       e f g h i\n" },
      { "  a    b c d\te f g h i", "  a    b c d\n       e f g h i\n" },
      { "  a    b c d e f g h i", "  a    b c d e f g h\n       i\n" },
      // a key is no place to break, unless it is too long itself
      { "(1.1.1.1, 2.2.2.2) in", "(1.1.1.1, 2.2.2.2)\n      in\n" },
      { "a few words (1.1.1, 2.2.2) in",
        "a few words\n      (1.1.1, 2.2.2)\n      in\n" },
      { "(1.1.1.111, 2.2.2.222) in", "(1.1.1.111,\n      2.2.2.222) in\n" },
      // a word that fits nowhere stays whole
      { "an-uncommonly-long-name on", "an-uncommonly-long-name\n      on\n" },
      { "  a  an-uncommonly-long-name  b",
        "  a  an-uncommonly-long-name\n     b\n" } };
   for ( const auto& [text, lines] : rows )
      EXPECT_EQ( folded( text, 20 ), lines ) << text;
   EXPECT_EQ( folded( "a\tb  c\n", noFold ), "a b  c\n" );
}

}
}
