// Reports changes in the kernel as they happen.
//
//    Notifications notifications( loop, { RTNLGRP_LINK }, onMessage, onOverrun );
//
// Subscribe first, then dump: no change is missed. Event-loop thread only.
#pragma once

#include "apps/netlink/Dump.h"
#include "apps/netlink/Socket.h"
#include "platform/loop/Loop.h"

namespace Netlink {

class Notifications {
 public:
   // Subscribes to the groups RTNLGRP_*. `overrun` is called when changes were lost
   // because the socket was full; dump again then. Throws std::system_error.
   Notifications( Mox::Loop& loop, std::initializer_list<int> groups,
                  Handler handler, Mox::Loop::Function overrun );

 private:
   static constexpr int kMaxReads = 64;  // a turn; others want the loop, too
   static constexpr int kMaxDiscarded = 100'000;  // more than the buffer holds

   void read();
   void discard();

   Socket socket_;
   Handler handler_;
   Mox::Loop::Function overrun_;
   Mox::Loop::FdWatcher watcher_;
};

}
