// Plays a script on a test clock and writes down when a state changes.
//
//    "0 join 210, 10 prune 3"   ->   "0 joined, 10 prunePending, 13 noInfo"
//
// Seconds count from the script's start, to the hundredth; what stands behind them is
// the test's.
#pragma once

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "platform/loop/TestClock.h"

namespace Router {

struct ScriptRow {
   const char* script;
   const char* history;
};

using ScriptWords = std::vector<std::string>;

// The world's act() does what a step says, its state() tells the state; when all are
// through, time passes until every timer is, even one of 18 hours.
template <class World>
std::string playScript( Mox::TestClock& clock, const std::string& script,
                        World& world ) {
   const double start = clock.now();
   std::string last = world.state();
   std::string history;
   auto look = [&] {
      if ( world.state() == last ) return;
      last = world.state();
      history +=
         fmt::format( "{}{:g} {}", history.empty() ? "" : ", ",
                      std::round( 100 * ( clock.now() - start ) ) / 100, last );
   };
   // Whatever is due by then comes first.
   auto until = [&]( double seconds ) {
      while ( clock.nextWakeup() <= start + seconds ) {
         clock.runUntil( clock.nextWakeup() );
         look();
      }
      clock.runUntil( start + seconds );
   };
   std::istringstream steps( script );
   for ( std::string step; std::getline( steps, step, ',' ); ) {
      std::istringstream text( step );
      double at = 0.0;
      text >> at;
      until( at );
      world.act( ScriptWords( std::istream_iterator<std::string>( text ), {} ) );
      look();
   }
   until( 100000 );
   return history;
}

}
