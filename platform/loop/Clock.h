// Clocks and their observers.
//
// Time is CLOCK_MONOTONIC in seconds, comparable across the processes of one boot.
// An observer has one wake-up time; a wake-up that is due fires once, on the next
// pass of the loop, after the other ready work of that pass. A wake-up set during a
// pass waits for the next pass, even if it is due: work cut into slices sets its
// wake-up to now and lets others run in between.
//
// Event-loop thread only.
#pragma once

#include <compare>
#include <cstdint>
#include <limits>
#include <set>

#include "platform/base/Export.h"

namespace Mox {

class PIMSM_API Clock {
 public:
   class Notifiee;

   // The wake-up time of an observer that awaits none.
   static constexpr double never = std::numeric_limits<double>::infinity();

   Clock() = default;
   Clock( const Clock& ) = delete;
   Clock& operator=( const Clock& ) = delete;
   // Remaining observers forget the clock, and their wake-ups never fire. Not to be
   // called from an onTime() of this clock.
   virtual ~Clock();

   // Read afresh on every call.
   virtual double now() const = 0;

   // The earliest wake-up time of all observers, `never` without one.
   double nextWakeup() const;

 protected:
   using Turn = uint64_t;

   // Marks the start of a pass: wake-ups set from here on wait for the next.
   Turn turn() const { return lastSetting_; }

   // Fires the wake-ups that are due at `time` and were set before `turn`: in
   // order of time, ties in order of setting. What an onTime() throws passes
   // through; the wake-ups not yet fired stay.
   void fireDue( double time, Turn turn );

   // Called when nextWakeup() has changed. Must not throw.
   virtual void handleNextWakeup() {}

 private:
   struct Wakeup {
      double time;
      uint64_t setting;  // unique; tells a wake-up from its replacement
      Notifiee* notifiee;
      auto operator<=>( const Wakeup& ) const = default;
   };

   std::set<Wakeup> wakeups_;
   std::set<Notifiee*> notifiees_;
   uint64_t lastSetting_ = 0;
};

// Observes a clock. Destruction detaches, also during a pass.
class PIMSM_API Clock::Notifiee {
 public:
   // REQUIRES: clock is not null.
   explicit Notifiee( Clock* clock );
   Notifiee( const Notifiee& ) = delete;
   Notifiee& operator=( const Notifiee& ) = delete;
   virtual ~Notifiee();

   // Null once the clock is gone.
   Clock* clock() const { return clock_; }

   double wakeupTime() const { return wakeup_.time; }

   // Replaces the wake-up time, in seconds on the clock; at or before now fires on
   // the next pass. REQUIRES: not a NaN.
   void wakeupTimeIs( double time );

   // Called when the wake-up time came. The time reads `never` again and may be set
   // anew.
   virtual void onTime() = 0;

 private:
   friend class Clock;

   Clock* clock_;
   Wakeup wakeup_{ never, 0, this };
};

}
