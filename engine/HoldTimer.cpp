#include "engine/HoldTimer.h"

namespace Router {

void HoldTimer::adopt( double received, double holdtime ) {
   const double until = received + holdtime;
   if ( holdtime > 0.0 ) {
      timer_.resume( until );
   } else {
      timer_.start( defaultHoldtime );
   }
   holdtime_ = timer_.until() == until ? holdtime : timer_.until() - received;
}

}
