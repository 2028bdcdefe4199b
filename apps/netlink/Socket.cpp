#include "apps/netlink/Socket.h"

#include <cerrno>
#include <system_error>

namespace Netlink {

Socket openSocket() {
   Socket socket( mnl_socket_open2( NETLINK_ROUTE, SOCK_CLOEXEC ) );
   if ( socket == nullptr ||
        mnl_socket_bind( socket.get(), 0, MNL_SOCKET_AUTOPID ) < 0 )
      throw std::system_error( errno, std::generic_category(), "netlink socket" );
   return socket;
}

}
