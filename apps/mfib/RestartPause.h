// The pause before a program that ended is restarted.
#pragma once

#include <algorithm>

namespace Forwarding {

class RestartPause {
 public:
   static constexpr double first = 0.1;  // s
   static constexpr double most = 10.0;  // s
   static constexpr double steady =
      10.0;  // s; one that lived so long starts afresh

   // The next pause, after a run of so many seconds: none the first time, then
   // twice the former one.
   double next( double lived ) {
      if ( lived >= steady ) pause_ = 0.0;
      double now = pause_;
      pause_ = std::clamp( 2 * pause_, first, most );
      return now;
   }

 private:
   double pause_ = 0.0;
};

}
