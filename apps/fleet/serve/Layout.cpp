#include "apps/fleet/serve/Layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "apps/fleet/serve/detail/Child.h"

namespace Fleet {

namespace {

constexpr double kInch = 96.0;  // pixels

std::string dotOf( const Graph& graph ) {
   std::string dot = fmt::format(
      "digraph{{graph[rankdir={},nodesep=0.2,ranksep=0.28]"
      "node[shape=box,fixedsize=true,label=\"\"]edge[arrowhead=none]\n",
      graph.down ? "TB" : "LR" );
   for ( size_t i = 0; i < graph.boxes.size(); ++i )
      dot +=
         fmt::format( "{}[width={:.3f},height={:.3f}]\n", i,
                      graph.boxes[i].width / kInch, graph.boxes[i].height / kInch );
   for ( const auto& [from, to] : graph.lines )
      dot += fmt::format( "{}->{}\n", from, to );
   return dot + "}\n";
}

// Reads Graphviz's format "plain": inches, upwards.
class Plain {
 public:
   Plain( const Graph& graph, const std::string& text ) {
      layout_.boxes.resize( graph.boxes.size() );
      layout_.lines.resize( graph.lines.size() );
      for ( size_t i = 0; i < graph.lines.size(); ++i )
         lines_.emplace( graph.lines[i], i );
      std::istringstream lines( text );
      for ( std::string line; std::getline( lines, line ); ) read( line );
      if ( !whole_ ) throw NoLayout( "Graphviz's answer is not whole" );
   }
   Layout layout() { return std::move( layout_ ); }

 private:
   void read( const std::string& line ) {
      std::istringstream in( line );
      std::string word;
      in >> word;
      if ( word == "stop" ) whole_ = true;
      if ( word == "graph" ) {
         double scale = 0.0;
         in >> scale;
         layout_.size = { number( in ), number( in ) };
      } else if ( word == "node" ) {
         const size_t box = index( in );
         if ( box < layout_.boxes.size() ) layout_.boxes[box] = point( in );
      } else if ( word == "edge" ) {
         curve( in );
      }
   }

   void curve( std::istringstream& in ) {
      const size_t from = index( in ), to = index( in );
      const auto found = lines_.find( { from, to } );
      if ( found == lines_.end() ) return;
      auto& line = layout_.lines[found->second];
      lines_.erase( found );
      line.resize( std::min<size_t>( index( in ), 1000 ) );
      for ( Layout::Point& each : line ) each = point( in );
   }

   static size_t index( std::istringstream& in ) {
      size_t index = SIZE_MAX;
      in >> index;
      return index;
   }
   static double number( std::istringstream& in ) {
      double number = 0.0;
      in >> number;
      return number * kInch;
   }
   Layout::Point point( std::istringstream& in ) const {
      const double x = number( in );
      return { x, layout_.size.height - number( in ) };
   }

   Layout layout_;
   std::multimap<std::pair<size_t, size_t>, size_t> lines_;  // not met yet
   bool whole_ = false;
};

}

Layout layoutOf( const Graph& graph ) {
   return Plain( graph, childsAnswer( "dot", "-Tplain", dotOf( graph ) ) ).layout();
}

}
