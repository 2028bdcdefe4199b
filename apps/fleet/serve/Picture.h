// The picture of a tree: routers as boxes, and between them what passes, as SVG for a page.
// Each part carries a word for its state and a link to its history; colours are the page's.
// Pure but for drawn(); any thread.
#pragma once

#include <string>
#include <vector>

#include "apps/fleet/path/Path.h"
#include "apps/fleet/serve/Layout.h"

namespace Fleet {

class Picture {
 public:
   // Above it a tree is folded.
   static constexpr size_t mostRouters = 300;

   // `down`: the tree grows downwards, for narrow pages; else to the right.
   Picture( const PathAnswer& answer, bool down, size_t most = mostRouters );

   // Without texts: it changes only with what is there and how long its words are.
   const Graph& graph() const { return graph_; }
   // REQUIRES: the layout of that graph. The text is escaped whatever names are.
   std::string svg( const Layout& layout ) const;

 private:
   struct Box {
      std::string kind;   // classes of the page's style
      std::string title;  // the whole of it in a sentence
      std::string link;
      std::vector<std::string> lines;
   };

   void addRouters( const PathAnswer& answer, const std::vector<size_t>& into );
   void addEdges( const PathAnswer& answer, const std::vector<size_t>& into );
   void add( Box box );
   std::vector<size_t> inOrder( const Layout& layout ) const;

   std::string heading_;
   std::vector<Box> boxes_;
   Graph graph_;
};

// "r1 eth1 forwards to r2 eth0, 4.1 Mbit/s"; with what breaks there.
std::string edgeSentence( const PathAnswer& answer, const PathAnswer::Edge& edge );
// "4.1 Mbit/s", "4.1 Mbit/s, 0 bit/s below"; empty: not known.
std::string edgeRate( const PathAnswer::Edge& edge );

}
