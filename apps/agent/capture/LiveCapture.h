// The PIM and group membership packets that arrive on a network interface of this
// host, without those of VLANs on it. Listens only; needs CAP_NET_RAW.
//
// An interface that is missing or down costs nothing: its owner has it tried again when
// the system's interfaces change. One that went away otherwise is tried each second.
// Event-loop thread; the loop and clock outlive it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "apps/agent/capture/CaptureReader.h"
#include "platform/loop/Clock.h"
#include "platform/loop/Loop.h"

namespace Agent {

class LiveCapture : public Mox::Clock::Notifiee {
 public:
   static constexpr double retryInterval = 1.0;  // s

   struct Observer {
      std::function<void( const CapturedPacket& )> packet;
      // Gets a message when the interface has gone or is back.
      std::function<void( const std::string& )> state;
      // Gets the number of packets that came faster than they were read.
      std::function<void( uint64_t )> missed;
   };

   enum Presence { isThere, isWaitedFor };
   // Registers and register-stops may be heard otherwise.
   enum Registers { withRegisters, withoutRegisters };

   // Opens the interface. Throws CaptureError when this process may not listen, or
   // when the interface is missing or down and is not waited for.
   LiveCapture( Mox::Loop& loop, Mox::Clock& clock, std::string interface,
                Observer observer, Presence presence = isThere,
                Registers registers = withRegisters );
   ~LiveCapture() override;

   const std::string& interface() const { return interface_; }

   // The interface may have come or gone up.
   void retry();

 private:
   struct Handle;
   static constexpr int kMaxPackets = 256;  // a turn; others want the loop, too

   void open();
   void read();
   void lose( const std::string& why );
   void tryAgain();
   void onTime() override { tryAgain(); }

   Mox::Loop& loop_;
   std::string interface_;
   const char* filter_;
   Observer observer_;
   std::unique_ptr<Handle> handle_;  // null while the interface is away
   std::unique_ptr<Mox::Loop::FdWatcher> watcher_;
};

}
