#include "platform/loop/RealClock.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <vector>

namespace Mox {
namespace {

constexpr double kNanoseconds = 1e9;

// Rounded up, so that the timer never fires before `time`. Zero would disarm it.
timespec timerTime( double time ) {
   // A century from the start of the clock; much later times overflow the kernel's
   // word.
   constexpr double kLatest = 3.2e9;
   double bounded = std::clamp( time, 0.0, kLatest );
   double seconds = std::floor( bounded );
   timespec out{};
   out.tv_sec = static_cast<time_t>( seconds );
   out.tv_nsec =
      static_cast<long>( std::ceil( ( bounded - seconds ) * kNanoseconds ) );
   if ( out.tv_nsec >= 1000000000 ) {
      out.tv_nsec = 0;
      ++out.tv_sec;
   }
   if ( out.tv_sec == 0 && out.tv_nsec == 0 ) out.tv_nsec = 1;
   return out;
}

}

RealClock::RealClock( Loop& loop )
   : loop_( loop ),
     timer_( timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK ),
             "timerfd_create" ) {
   // The timer only wakes the loop, which asks every clock in every turn.
   watcher_ = std::make_unique<Loop::FdWatcher>( loop, timer_.value(), [] {} );
   loop_.clocks_.push_back( this );
}

RealClock::~RealClock() {
   std::erase( loop_.clocks_, this );
}

double RealClock::now() const {
   timespec time{};
   clock_gettime( CLOCK_MONOTONIC, &time );
   return static_cast<double>( time.tv_sec ) +
          static_cast<double>( time.tv_nsec ) / kNanoseconds;
}

void RealClock::fire() {
   if ( nextWakeup() != never ) fireDue( now(), turn_ );
}

// The timer is never read: it stays readable until it is set to another time.
void RealClock::arm() {
   double next = nextWakeup();
   if ( next == armed_ ) return;
   armed_ = next;
   itimerspec setting{};
   if ( next != never ) setting.it_value = timerTime( next );
   timerfd_settime( timer_.value(), TFD_TIMER_ABSTIME, &setting, nullptr );
}

}
