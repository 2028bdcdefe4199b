#include "apps/netlink/Notifications.h"

#include <cerrno>
#include <system_error>

namespace Netlink {
namespace {

constexpr int kReceiveBuffer = 1 << 20;

Socket subscribed( std::initializer_list<int> groups ) {
   Socket socket = openSocket();
   int file = mnl_socket_get_fd( socket.get() );
   // Beyond the system's limit only with CAP_NET_ADMIN.
   if ( setsockopt( file, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer,
                    sizeof kReceiveBuffer ) != 0 ) {
      setsockopt( file, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer,
                  sizeof kReceiveBuffer );
   }
   for ( int group : groups ) {
      if ( mnl_socket_setsockopt( socket.get(), NETLINK_ADD_MEMBERSHIP, &group,
                                  sizeof group ) < 0 )
         throw std::system_error( errno, std::generic_category(),
                                  "netlink notifications" );
   }
   return socket;
}

}

Notifications::Notifications( Mox::Loop& loop, std::initializer_list<int> groups,
                              Handler handler, Mox::Loop::Function overrun )
   : socket_( subscribed( groups ) ),
     handler_( std::move( handler ) ),
     overrun_( std::move( overrun ) ),
     watcher_( loop, mnl_socket_get_fd( socket_.get() ), [this] { read(); } ) {}

void Notifications::read() {
   alignas( nlmsghdr ) char buffer[32768];
   for ( int reads = 0; reads < kMaxReads; ++reads ) {
      // libmnl's own receive function blocks.
      sockaddr_nl from{};
      iovec part = { buffer, sizeof buffer };
      msghdr envelope{};
      envelope.msg_name = &from;
      envelope.msg_namelen = sizeof from;
      envelope.msg_iov = &part;
      envelope.msg_iovlen = 1;
      ssize_t count =
         recvmsg( mnl_socket_get_fd( socket_.get() ), &envelope, MSG_DONTWAIT );
      if ( count < 0 && errno == ENOBUFS ) {
         discard();
         overrun_();
         continue;
      }
      if ( count < 0 ) return;
      if ( ( envelope.msg_flags & MSG_TRUNC ) != 0 ) overrun_();
      if ( from.nl_pid != 0 ) continue;  // not the kernel's
      int left = static_cast<int>( count );
      const auto* message = reinterpret_cast<const nlmsghdr*>( buffer );
      for ( ; mnl_nlmsg_ok( message, left );
            message = mnl_nlmsg_next( message, &left ) )
         handler_( Message( *message ) );
   }
}

// What waits is older than what was lost, and would undo what a dump tells.
void Notifications::discard() {
   const int file = mnl_socket_get_fd( socket_.get() );
   char byte = 0;
   for ( int reads = 0; reads < kMaxDiscarded; ++reads )
      if ( recv( file, &byte, sizeof byte, MSG_DONTWAIT ) < 0 && errno != ENOBUFS )
         return;
}

}
