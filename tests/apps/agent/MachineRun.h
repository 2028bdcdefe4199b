// Drives a downstream machine through a script on a test clock and writes down
// when its state changes.
//
//    at( 0 ), join 210; at( 10 ), prune 3   ->   "0 joined, 10 prunePending, 13
//    noInfo"
//
// Seconds count from the script's start.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/base/Text.h"
#include "platform/loop/TestClock.h"

namespace Agent {

class MachineRun {
 public:
   // `state` gives the present state in words.
   MachineRun( Mox::TestClock& clock, std::function<std::string()> state )
      : clock_( clock ),
        state_( std::move( state ) ),
        start_( clock.now() ),
        last_( state_() ) {}

   // Lets the time pass until then; whatever is due by then comes first.
   void until( double seconds ) {
      while ( clock_.nextWakeup() <= start_ + seconds ) {
         clock_.runUntil( clock_.nextWakeup() );
         look();
      }
      clock_.runUntil( start_ + seconds );
   }
   // After each event.
   void look() {
      std::string state = state_();
      if ( state == last_ ) return;
      last_ = state;
      if ( !history_.empty() ) history_ += ", ";
      history_ += Mox::valueToStrep( clock_.now() - start_ ) + ' ' + state;
   }

   const std::string& history() const { return history_; }
   // How often it came to that state.
   size_t times( const std::string& state ) const {
      size_t count = 0;
      for ( size_t at = 0;
            ( at = history_.find( ' ' + state, at ) ) != std::string::npos; ++at ) {
         ++count;
      }
      return count;
   }

 private:
   Mox::TestClock& clock_;
   std::function<std::string()> state_;
   double start_;
   std::string last_;
   std::string history_;
};

// Beyond every time of a script, even a hold time of 18 hours.
constexpr double kLongAfter = 100000.0;

}
