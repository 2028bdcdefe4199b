// Signals as events of a loop.
#pragma once

#include <csignal>
#include <functional>
#include <initializer_list>

#include "platform/base/Export.h"
#include "platform/loop/Loop.h"

namespace Mox {

// Blocks the signals for the calling thread and calls back with the number of each
// that arrives; equal signals that wait count as one. Destruction drops waiting
// signals and unblocks what this watcher blocked. Child processes inherit the
// blocked signals: unblock them before an exec.
class PIMSM_API SignalWatcher {
 public:
   using Handler = std::function<void( int signal )>;

   // Throws std::system_error.
   SignalWatcher( Loop& loop, std::initializer_list<int> signals, Handler handler );
   ~SignalWatcher();
   SignalWatcher( const SignalWatcher& ) = delete;
   SignalWatcher& operator=( const SignalWatcher& ) = delete;

 private:
   int next();  // the number of a signal that waits, 0 for none
   void readable();

   sigset_t blocked_;
   Loop::Fd fd_;
   Handler handler_;
   Loop::FdWatcher watcher_;
};

}
