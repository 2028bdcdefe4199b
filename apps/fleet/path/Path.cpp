#include "apps/fleet/path/Path.h"

#include <algorithm>

#include "apps/fleet/path/detail/Walk.h"

namespace Fleet {

PathAnswer findPath( Reader& reader, const PathQuestion& question ) {
   Routers routers( reader, question.scope, question.stream, !question.receiver );
   std::set<uint32_t> confirmed;
   // What fails anew each time is told at last: state that changes all the while.
   constexpr int kRounds = 4;
   for ( int round = 1;; ++round ) {
      Walk walk( routers, question );
      PathAnswer answer = walk.answer();
      std::set<uint32_t> open;
      std::set_difference( walk.suspects().begin(), walk.suspects().end(),
                           confirmed.begin(), confirmed.end(),
                           std::inserter( open, open.begin() ) );
      if ( open.empty() || !question.pause || round == kRounds ) {
         answer.problems = routers.problems();
         return answer;
      }
      question.pause();
      routers.again( open );
      confirmed.insert( open.begin(), open.end() );
   }
}

}
