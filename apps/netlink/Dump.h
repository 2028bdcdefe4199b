// Everything that the kernel knows of one kind.
#pragma once

#include <functional>

#include "apps/netlink/Message.h"

namespace Netlink {

using Handler = std::function<void( const Message& )>;

// Asks for a dump, RTM_GETLINK or RTM_GETROUTE for instance, of an address family
// (AF_UNSPEC, AF_INET, RTNL_FAMILY_IPMR ...) and hands over each message of the
// answer; what the handler throws passes through. Takes as long as the kernel needs
// to tell it. False: what was told changed meanwhile, so that the whole may lack
// something; ask again. Throws std::system_error.
bool dump( uint16_t type, int family, const Handler& handler );

// A dump of routes (RTM_GETROUTE) of one table. A kernel that cannot choose tells of
// all tables: look at each message's own.
bool dumpRoutes( int family, uint32_t table, const Handler& handler );

}
