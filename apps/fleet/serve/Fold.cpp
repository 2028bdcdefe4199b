#include "apps/fleet/serve/Fold.h"

#include <limits>

namespace Fleet {

namespace {

constexpr size_t kNobody = std::numeric_limits<size_t>::max();

class Folding {
 public:
   explicit Folding( const PathAnswer& answer ) : answer_( answer ) {
      const size_t count = answer.nodes.size();
      below_.resize( count );
      above_.resize( count );
      parent_.resize( count, kNobody );
      met_.resize( count );
      needed_.resize( count );
      for ( const auto& each : answer.edges ) {
         below_[each.from].push_back( each.to );
         above_[each.to].push_back( each.from );
      }
      order();
      mark();
   }

   std::vector<size_t> drawn( size_t most ) const {
      std::vector<bool> is( below_.size() );
      for ( const bool needed : { true, false } )
         for ( const size_t node : order_ )
            if ( needed_[node] == needed &&
                 ( most > 0 || parent_[node] == kNobody ) ) {
               is[node] = true;
               if ( most > 0 ) --most;
            }
      std::vector<size_t> into( below_.size() );
      for ( const size_t node : order_ )
         into[node] = is[node] ? node : into[parent_[node]];
      return into;
   }

 private:
   // Breadth first from the roots, then from what hangs nowhere.
   void order() {
      for ( const auto& root : answer_.roots ) descend( root.node );
      for ( size_t node = 0; node < below_.size(); ++node ) descend( node );
   }

   void descend( size_t root ) {
      if ( met_[root] ) return;
      met_[root] = true;
      size_t next = order_.size();
      order_.push_back( root );
      for ( ; next < order_.size(); ++next ) {
         const size_t node = order_[next];
         for ( const size_t each : below_[node] ) {
            if ( met_[each] ) continue;
            met_[each] = true;
            parent_[each] = node;
            order_.push_back( each );
         }
      }
   }

   // What is not as it should be, and all above it.
   void mark() {
      std::vector<size_t> todo;
      for ( size_t node = 0; node < answer_.nodes.size(); ++node )
         if ( answer_.nodes[node].stale || answer_.nodes[node].agentGone )
            todo.push_back( node );
      for ( const auto& each : answer_.edges )
         if ( each.judgement ) todo.insert( todo.end(), { each.from, each.to } );
      for ( const auto& each : answer_.roots )
         if ( each.judgement ) todo.push_back( each.node );
      for ( const auto& each : answer_.receivers )
         if ( each.judgement ) todo.push_back( each.node );
      while ( !todo.empty() ) {
         const size_t node = todo.back();
         todo.pop_back();
         if ( needed_[node] ) continue;
         needed_[node] = true;
         todo.insert( todo.end(), above_[node].begin(), above_[node].end() );
      }
   }

   const PathAnswer& answer_;
   std::vector<std::vector<size_t>> below_, above_;
   std::vector<size_t> parent_;  // in that order
   std::vector<bool> met_, needed_;
   std::vector<size_t> order_;
};

}

std::vector<size_t> folded( const PathAnswer& answer, size_t most ) {
   return Folding( answer ).drawn( most );
}

}
