// A clock driven by another clock, whose passes wake this clock's observers.
#pragma once

#include "platform/loop/Clock.h"

namespace Mox {

class FollowingClock : public Clock {
 public:
   // `real` outlives this clock.
   explicit FollowingClock( Clock& real ) : real_( real ), bridge_( *this ) {}

   double now() const override { return real_.now(); }

 protected:
   void handleNextWakeup() override { bridge_.wakeupTimeIs( nextWakeup() ); }
   // Called when the other clock reaches nextWakeup(). What stays due waits for the
   // other clock's next pass.
   virtual void handleDue() { fireDue( now(), turn() ); }

 private:
   class Bridge : public Notifiee {
    public:
      explicit Bridge( FollowingClock& owner )
         : Notifiee( &owner.real_ ), owner_( owner ) {}
      void onTime() override {
         owner_.handleDue();
         owner_.handleNextWakeup();
      }

    private:
      FollowingClock& owner_;
   };

   Clock& real_;
   Bridge bridge_;
};

}
