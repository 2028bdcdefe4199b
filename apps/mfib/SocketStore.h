// Sockets that outlive the process: kept by systemd's file-descriptor store, or by the
// keeper, which speaks the same protocol (sd_notify(3), sd_listen_fds(3)).
#pragma once

#include <map>
#include <string>

#include "apps/mfib/MrtTable.h"

namespace Forwarding {

class SocketStore {
 public:
   // Takes over what the environment names, once a process.
   SocketStore();

   // The one kept under that name; null: none. It stays kept.
   SharedFd take( const std::string& name );
   // Hands a copy over. Nothing happens where nobody keeps sockets.
   void keep( const std::string& name, const SharedFd& socket );
   // Those that nobody took are kept no longer, and close.
   void dropOthers();

   // Tells whoever started the process that it has all it needs.
   void tellReady();

 private:
   std::map<std::string, SharedFd> kept_;
};

}
