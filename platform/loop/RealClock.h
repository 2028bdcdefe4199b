// CLOCK_MONOTONIC. A loop fires its wake-ups.
#pragma once

#include <memory>

#include "platform/loop/Clock.h"
#include "platform/loop/Loop.h"

namespace Mox {

class PIMSM_API RealClock : public Clock {
 public:
   // The loop must outlive the clock. Throws std::system_error when the system has
   // no timer left.
   explicit RealClock( Loop& loop );
   ~RealClock() override;

   double now() const override;

 protected:
   void handleNextWakeup() override { arm(); }

 private:
   friend class Loop;

   void turnStarts() { turn_ = turn(); }
   void fire();
   void arm();

   Loop& loop_;
   Loop::Fd timer_;
   std::unique_ptr<Loop::FdWatcher> watcher_;
   double armed_ = never;
   Turn turn_ = 0;
};

}
