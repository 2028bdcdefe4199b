// A parent that keeps the sockets of a program and restarts the program when it
// dies: for hosts whose service manager does neither.
//
// The program hands sockets over and finds them again as with systemd
// (SocketStore.h). SIGTERM, SIGINT and SIGHUP are passed on. The keeper ends with
// the program's exit status in three cases: the program ended by itself, or on a
// signal that was passed on, or it failed before it was ever ready, which a restart
// would not mend. Where the host has no room for a process, it tries again after
// the pause. Once the program was ready, the keeper needs no capability and drops
// them.
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

   // `program` is its path, then its arguments. `clock` measures run times and
   // pauses. Throws std::system_error.
   Keeper( Mox::Loop& loop, Mox::Clock& clock, std::vector<std::string> program,
           std::function<void( const std::string& )> say );
   ~Keeper() override;

   // Starts the program, and runs the loop until the keeper ends. Returns the exit
   // status. Throws std::system_error when there is no room for a first process.
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
   std::string address_;  // address of messages_, for NOTIFY_SOCKET
   std::map<std::string, SharedFd> kept_;
   RestartPause pause_;
   pid_t child_ = 0;  // 0: none
   double started_ = 0.0;
   bool wasReady_ = false;
   bool ending_ = false;
   std::string problem_;  // why the last start failed
   int status_ = 0;
};

}
