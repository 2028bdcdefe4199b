// An entry of the kernel's multicast forwarding.
#pragma once

#include <vector>

#include "apps/netlink/Message.h"

namespace Netlink {

// Interfaces are the kernel's indexes.
struct MulticastEntry {
   uint32_t table = 0;
   Vantu::IpGenAddr source;  // unspecified: of a (*,G) entry the kernel names none
   Vantu::IpGenAddr group;
   uint32_t incomingIndex = 0;  // 0: the interface has gone
   std::vector<uint32_t> outgoingIndexes;
};

// Of a dump (RTM_GETROUTE of RTNL_FAMILY_IPMR or RTNL_FAMILY_IP6MR). Nothing for an entry
// that waits for a decision, and for other messages.
std::optional<MulticastEntry> multicastEntry( const Message& message,
                                              Vantu::AddressFamily family );

}
