#include "platform/loop/Clock.h"

#include <cmath>
#include <vector>

#include "platform/base/Assert.h"

namespace Mox {

Clock::~Clock() {
   for ( Notifiee* notifiee : notifiees_ ) {
      notifiee->clock_ = nullptr;
      notifiee->wakeup_.time = never;
   }
}

double Clock::nextWakeup() const {
   return wakeups_.empty() ? never : wakeups_.begin()->time;
}

void Clock::fireDue( double time, Turn turn ) {
   std::vector<Wakeup> due;
   for ( const Wakeup& wakeup : wakeups_ ) {
      if ( wakeup.time > time ) break;
      if ( wakeup.setting <= turn ) due.push_back( wakeup );
   }
   for ( const Wakeup& wakeup : due ) {
      // Not found when an observer called earlier moved or detached it.
      if ( wakeups_.erase( wakeup ) == 0 ) continue;
      wakeup.notifiee->wakeup_.time = never;
      handleNextWakeup();
      wakeup.notifiee->onTime();
   }
}

Clock::Notifiee::Notifiee( Clock* clock ) : clock_( clock ) {
   MOX_ASSERT( clock != nullptr );
   clock->notifiees_.insert( this );
}

Clock::Notifiee::~Notifiee() {
   if ( clock_ == nullptr ) return;
   wakeupTimeIs( never );
   clock_->notifiees_.erase( this );
}

void Clock::Notifiee::wakeupTimeIs( double time ) {
   MOX_ASSERT( !std::isnan( time ) );
   if ( clock_ == nullptr || time == wakeup_.time ) return;
   double next = clock_->nextWakeup();
   clock_->wakeups_.erase( wakeup_ );
   wakeup_.time = time;
   wakeup_.setting = ++clock_->lastSetting_;
   if ( time != never ) clock_->wakeups_.insert( wakeup_ );
   if ( clock_->nextWakeup() != next ) clock_->handleNextWakeup();
}

}
