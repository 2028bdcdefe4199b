// Parses the kernel's messages of multicast forwarding, without trust.
#pragma once

#include "apps/mfib/KernelTable.h"
#include "apps/netlink/Message.h"

namespace Forwarding {

// An upcall from an MRT or MRT6 socket; nothing for any other packet, such as the
// IGMP that comes by the same socket.
std::optional<Upcall> readUpcall( Vantu::AddressFamily family,
                                  Netlink::Bytes packet );

// An entry of that table from a dump. Nothing for an entry of another table, for
// one that waits for a decision, and for other messages.
std::optional<StandingEntry> readEntry( const Netlink::Message& message,
                                        Vantu::AddressFamily family,
                                        uint32_t table );

}
