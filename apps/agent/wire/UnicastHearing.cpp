#include "apps/agent/wire/UnicastHearing.h"

#include <sys/socket.h>

#include "packet/Pim.h"

namespace Agent {
namespace {

constexpr int kReceiveBuffer = 8 << 20;  // bytes; the kernel may grant less

int openRaw( Vantu::AddressFamily family ) {
   return socket( family == Vantu::AddressFamily::ipv4 ? AF_INET : AF_INET6,
                  SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, Router::pimProtocol );
}

}

UnicastHearing::UnicastHearing( Mox::Loop& loop, Vantu::AddressFamily family,
                                Heard heard )
   : socket_( openRaw( family ), "register socket" ),
     hearing_( family, socket_.value() ),
     heard_( std::move( heard ) ),
     watcher_( loop, socket_.value(), [this] { read(); } ) {
   setsockopt( socket_.value(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer,
               sizeof kReceiveBuffer );
   hearing_.wantedIs( Registers::Wanted::messages );
}

void UnicastHearing::read() {
   for ( int i = 0; i < kMaxPackets; ++i ) {
      const auto packet = hearing_.next();
      if ( !packet ) return;
      heard_( *packet );
   }
}

}
