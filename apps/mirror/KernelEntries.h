// The kernel's multicast entries, compared with the tables that the forwarding process
// makes them from. Event-loop thread only.
//
// Not compared: what the forwarding process adds by itself, and interfaces that it does
// not forward by. A change of the tables reaches the kernel within two seconds: what
// differs once may be on its way.
#pragma once

#include "apps/mirror/Host.h"

namespace Show {

// What the kernel's entry does by an interface, and the route in the tables does not, or
// the reverse.
struct EntryDifference {
   enum Kind {
      sends,  // the kernel sends out by it, the table does not
      lacks,  // the table does, the kernel does not
      takes   // the kernel takes packets from it; the table from another
   };
   Kind kind;
   Vantu::IntfId intfId;
   // The configuration has a boundary there, which may bar the route.
   bool bounded = false;
};

// The kernel's table of the mirror's VRF; nothing: the forwarding process does not say.
std::optional<uint32_t> kernelTable( const Mirror& mirror );

// The entry of the mirror's VRF; null: there is none or, without the table's number, the
// interfaces that tell whose it is are not known. REQUIRES: known entries.
const Host::Entry* entryOf( const Mirror& mirror, const Host& host,
                            const Routing::Pim::RouteKey& key );

// In order of interface.
std::vector<EntryDifference> entryDifferences( const Mirror& mirror,
                                               const Route& route,
                                               const Host::Entry& entry );

// "in eth0, out eth1, eth3", without what the forwarding process adds.
std::string entryText( const Mirror& mirror, const Route& route,
                       const Host::Entry& entry );

}
