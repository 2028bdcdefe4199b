#include "apps/mfib/SocketStore.h"

#include <fcntl.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>

namespace Forwarding {

// sd_listen_fds_with_names(3) allocates each name, to be freed one by one.
SocketStore::SocketStore() {
   char** names = nullptr;
   int count = sd_listen_fds_with_names( 1, &names );
   for ( int i = 0; i < count; ++i ) {
      auto socket =
         std::make_shared<Mox::Loop::Fd>( SD_LISTEN_FDS_START + i, "kept socket" );
      if ( names != nullptr && names[i] != nullptr ) kept_[names[i]] = socket;
   }
   if ( names == nullptr ) return;
   for ( char** name = names; *name != nullptr; ++name ) std::free( *name );
   std::free( names );
}

SharedFd SocketStore::take( const std::string& name ) {
   auto found = kept_.find( name );
   if ( found == kept_.end() ) return nullptr;
   SharedFd socket = found->second;
   kept_.erase( found );
   return socket;
}

// systemd drops a descriptor of its store that polls with an error. Ours must stay:
// a routing socket keeps the kernel's entries even then.
void SocketStore::keep( const std::string& name, const SharedFd& socket ) {
   std::string message = "FDSTORE=1\nFDPOLL=0\nFDNAME=" + name;
   int file = socket->value();
   sd_pid_notify_with_fds( 0, 0, message.c_str(), &file, 1 );
}

void SocketStore::dropOthers() {
   for ( const auto& [name, socket] : kept_ )
      sd_notify( 0, ( "FDSTOREREMOVE=1\nFDNAME=" + name ).c_str() );
   kept_.clear();
}

}
