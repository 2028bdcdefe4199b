// Where the boxes and lines of a graph go, by Graphviz. Its program `dot` gets sizes and
// numbers, never a name that a store tells, and gives back coordinates.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/base/Error.h"

namespace Fleet {

// There is no `dot`, or it did not get done; the text says what to do.
class NoLayout : public Mox::Error {
 public:
   using Error::Error;
};

struct Graph {
   struct Size {
      double width = 0.0, height = 0.0;  // pixels
   };
   std::vector<Size> boxes;
   std::vector<std::pair<size_t, size_t>> lines;  // from the upper box to the lower
   bool down = false;                             // else to the right
};

struct Layout {
   struct Point {
      double x = 0.0, y = 0.0;  // pixels, downwards
   };
   Graph::Size size;
   std::vector<Point> boxes;               // their middles
   std::vector<std::vector<Point>> lines;  // a Bézier curve: 1 + 3 n points
};

// In a child process of at most 5 s and 512 MB. Throws NoLayout. Blocks.
Layout layoutOf( const Graph& graph );

}
