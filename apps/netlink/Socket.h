// A route netlink socket of libmnl that closes itself.
#pragma once

#include <libmnl/libmnl.h>

#include <memory>

namespace Netlink {

struct CloseSocket {
   void operator()( mnl_socket* socket ) const { mnl_socket_close( socket ); }
};
using Socket = std::unique_ptr<mnl_socket, CloseSocket>;

// Throws std::system_error.
Socket openSocket();

}
