// A one-shot timer on any clock.
#pragma once

#include <functional>
#include <utility>

#include "platform/loop/Clock.h"

namespace Agent {

class Timer : public Mox::Clock::Notifiee {
 public:
   Timer( Mox::Clock& clock, std::function<void()> expired )
      : Notifiee( &clock ), expired_( std::move( expired ) ) {}

   // Seconds from now; infinity never expires. Replaces what was set.
   void start( double seconds ) { wakeupTimeIs( clock()->now() + seconds ); }
   // As start(), unless that would bring the expiry forward (RFC 7761: "set to the
   // maximum of its current value and the HoldTime").
   void extend( double seconds ) {
      double until = clock()->now() + seconds;
      if ( !running() || wakeupTime() < until ) wakeupTimeIs( until );
   }
   void cancel() { wakeupTimeIs( never ); }
   bool running() const { return wakeupTime() != never; }

   static constexpr double never = Mox::Clock::never;

 private:
   // The function may destroy the timer.
   void onTime() override {
      auto expired = expired_;
      expired();
   }

   std::function<void()> expired_;
};

}
