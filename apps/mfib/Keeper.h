// A parent that keeps the sockets of a program and starts it again when it dies: for
// hosts without a service manager that does.
//
// The program hands sockets over and finds them again as with systemd (SocketStore.h).
// SIGTERM, SIGINT and SIGHUP are passed on. The keeper ends, with the program's exit
// status, when it ended by itself or on a signal that was passed on, and when it failed
// before it was ever ready: starting again would not mend that. A host that has no room
// for a process now is asked again after the pause. Once the program was ready the keeper
// itself needs no capability, and drops them.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "apps/mfib/MrtTable.h"
#include "apps/mfib/RestartPause.h"
#include "platform/loop/Clock.h"

namespace Forwarding {

class Keeper : private Mox::Clock::Notifiee {
 public:
   static constexpr size_t maxSockets = 64;

   // `program` is its path, then its arguments. `clock` times lives and pauses.
   // Throws std::system_error.
   Keeper( Mox::Loop& loop, Mox::Clock& clock, std::vector<std::string> program,
           std::function<void( const std::string& )> say );
   ~Keeper() override;

   // Starts the program, and runs the loop until the keeper is to end. Returns the
   // exit status. Throws std::system_error when there is no room for a first process.
   int run();

 private:
   void onTime() override;
   void spawn();
   [[noreturn]] void becomeProgram();
   void handleSignal( int signal );
   void handleEnd( int status );
   void readMessages();
   bool readMessage();
   void handleMessage( const std::string& text, std::vector<SharedFd> sockets );

   Mox::Loop& loop_;
   std::vector<std::string> program_;
   std::function<void( const std::string& )> say_;
   Mox::Loop::Fd messages_;
   Mox::Loop::FdWatcher watcher_;
   std::string address_;  // of messages_, as NOTIFY_SOCKET names it
   std::map<std::string, SharedFd> kept_;
   RestartPause pause_;
   pid_t child_ = 0;  // 0: none
   double started_ = 0.0;
   bool wasReady_ = false;
   bool ending_ = false;
   std::string problem_;  // of the last start
   int status_ = 0;
};

}
