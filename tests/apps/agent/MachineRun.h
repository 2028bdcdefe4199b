// Drives a downstream machine through a script on a test clock and writes down
// when its state changes.
//
//    "0 join 210, 10 prune 3"   ->   "0 joined, 10 prunePending, 13 noInfo"
//
// Seconds count from the script's start; "ever" is a time without end.
#pragma once

#include <cctype>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "apps/agent/engine/Timer.h"
#include "platform/base/Text.h"
#include "platform/loop/TestClock.h"

namespace Agent {

struct MachineRow {
   const char* name;
   const char* script;
   const char* history;
};

struct MachineStep {
   double at = 0.0;
   std::string event;
   std::vector<double> times;  // s, what the event says
   std::vector<std::string> words;
};

inline std::vector<MachineStep> machineSteps( const std::string& script ) {
   std::vector<MachineStep> out;
   std::istringstream texts( script );
   for ( std::string text; std::getline( texts, text, ',' ); ) {
      std::istringstream words( text );
      MachineStep& step = out.emplace_back();
      words >> step.at >> step.event;
      for ( std::string word; words >> word; ) {
         bool isTime = word == "ever" || std::isdigit( word[0] ) != 0;
         if ( !isTime ) {
            step.words.push_back( word );
         } else {
            step.times.push_back( word == "ever" ? Timer::never
                                                 : std::stod( word ) );
         }
      }
   }
   return out;
}

class MachineRun {
 public:
   // `state` gives the present state in words.
   MachineRun( Mox::TestClock& clock, std::function<std::string()> state )
      : clock_( clock ),
        state_( std::move( state ) ),
        start_( clock.now() ),
        last_( state_() ) {}

   // `act` does what a step says; then time passes until every timer is through.
   void play( const std::string& script,
              const std::function<void( const MachineStep& )>& act ) {
      for ( const MachineStep& step : machineSteps( script ) ) {
         until( step.at );
         act( step );
         look();
      }
      // Even a hold time of 18 hours.
      until( 100000 );
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
   // Whatever is due by then comes first.
   void until( double seconds ) {
      while ( clock_.nextWakeup() <= start_ + seconds ) {
         clock_.runUntil( clock_.nextWakeup() );
         look();
      }
      clock_.runUntil( start_ + seconds );
   }
   void look() {
      std::string state = state_();
      if ( state == last_ ) return;
      last_ = state;
      if ( !history_.empty() ) history_ += ", ";
      history_ += Mox::valueToStrep( clock_.now() - start_ ) + ' ' + state;
   }

   Mox::TestClock& clock_;
   std::function<std::string()> state_;
   double start_;
   std::string last_;
   std::string history_;
};

}
