// Reads all the kernel's objects of one kind.
#pragma once

#include <functional>

#include "apps/netlink/Message.h"

namespace Netlink {

using Handler = std::function<void( const Message& )>;

// Asks for a dump, RTM_GETLINK or RTM_GETROUTE for instance, of an address family
// (AF_UNSPEC, AF_INET, RTNL_FAMILY_IPMR ...) and passes each message of the answer
// to the handler, whose exceptions pass through. Blocks until the kernel has
// answered. Returns false when objects changed meanwhile, so that some may be
// missing: ask again. Throws std::system_error.
bool dump( uint16_t type, int family, const Handler& handler );

// A dump of one table's routes (RTM_GETROUTE). An old kernel sends all tables'
// routes: check each message's table.
bool dumpRoutes( int family, uint32_t table, const Handler& handler );

}
