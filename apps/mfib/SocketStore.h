// Sockets that outlive the process: kept by systemd's file-descriptor store, or by the
// keeper, which speaks the same protocol (sd_notify(3), sd_listen_fds(3)).
#pragma once

#include <map>
#include <string>

#include "apps/mfib/MrtTable.h"

namespace Forwarding {

class SocketStore {
 public:
   // Takes over the sockets that the environment names; once a process.
   SocketStore();

   // The socket kept under that name, which stays kept; null without one.
   SharedFd take( const std::string& name );
   // Hands a copy to the keeper or systemd. Does nothing without either.
   void keep( const std::string& name, const SharedFd& socket );
   // Ends the keeping of all sockets that were not taken; they close.
   void dropOthers();

 private:
   std::map<std::string, SharedFd> kept_;
};

}
