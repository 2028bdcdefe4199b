// Registers and register-stops to this host, in one family. They are unicast and come by
// any interface, sometimes in fragments, so packet sockets do not suit them. Event-loop
// thread only.
#pragma once

#include <functional>

#include "apps/registers/Hearing.h"
#include "platform/loop/Loop.h"

namespace Agent {

class UnicastHearing {
 public:
   using Heard = std::function<void( const Router::IpPacket& )>;

   // The loop outlives it. Throws std::system_error; needs CAP_NET_RAW.
   UnicastHearing( Mox::Loop& loop, Vantu::AddressFamily family, Heard heard );

 private:
   static constexpr int kMaxPackets = 256;  // a turn; others want the loop, too

   void read();

   Mox::Loop::Fd socket_;
   Registers::Hearing hearing_;
   Heard heard_;
   Mox::Loop::FdWatcher watcher_;
};

}
