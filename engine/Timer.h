// A one-shot timer on any clock.
#pragma once

#include <functional>
#include <utility>

#include "platform/loop/Clock.h"

namespace Router {

class PIMSM_API Timer : public Mox::Clock::Notifiee {
 public:
   Timer( Mox::Clock& clock, std::function<void()> expired )
      : Notifiee( &clock ), expired_( std::move( expired ) ) {}

   // Starts anew, in seconds from now; infinity never expires.
   void start( double seconds ) { startUntil( clock()->now() + seconds ); }
   // The same with the time of expiry.
   void startUntil( double time ) {
      running_ = true;
      wakeupTimeIs( time );
   }
   // As start(), unless that would bring the expiry forward (RFC 7761: "set to the
   // maximum of its current value and the HoldTime").
   void extend( double seconds ) {
      const double until = clock()->now() + seconds;
      if ( !running_ || wakeupTime() < until ) startUntil( until );
   }
   // Resumes a former process's timer. If it ended while no process ran, a restart
   // of it may have been missed: it gets a little more time.
   void resume( double until ) { startUntil( resumed( clock()->now(), until ) ); }
   static double resumed( double now, double until ) {
      return until > now ? until : now + grace;
   }
   // Brings the expiry of a running timer forward, never later.
   void lower( double seconds ) {
      double until = clock()->now() + seconds;
      if ( running_ && wakeupTime() > until ) startUntil( until );
   }
   bool running() const { return running_; }
   // The time of expiry; 0 when not running.
   double until() const { return running_ ? wakeupTime() : 0.0; }
   // Seconds until the expiry; 0 when not running.
   double left() const { return running_ ? wakeupTime() - clock()->now() : 0.0; }
   void cancel() {
      running_ = false;
      wakeupTimeIs( never );
   }

   static constexpr double never = Mox::Clock::never;
   static constexpr double grace = 5.0;  // s

 private:
   // The function may destroy the timer.
   void onTime() override {
      running_ = false;
      auto expired = expired_;
      expired();
   }

   // Needed because the wake-up time is the same for a timer that never expires and
   // one that is not set.
   bool running_ = false;
   std::function<void()> expired_;
};

}
