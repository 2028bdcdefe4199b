// How long to wait before a program that ended is started again.
#pragma once

#include <algorithm>

namespace Forwarding {

class RestartPause {
 public:
   static constexpr double first = 0.1;  // s
   static constexpr double most = 10.0;  // s
   static constexpr double steady =
      10.0;  // s; one that lived so long starts afresh

   // The next pause, after a life of so many seconds: none the first time, then twice
   // the one before.
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
