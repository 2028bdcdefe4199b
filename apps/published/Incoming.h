// Where a route's traffic comes in.
#pragma once

#include "model/Route.h"

namespace Published {

// Does it come in along the shared tree? That of an (S,G) route does while the route is not
// on the source tree, unless the source is on a link of this router: its first packet there
// puts the route on the source tree (RFC 7761, 4.2 and 4.2.2), and must not be lost.
inline bool comesBySharedTree( const Routing::Pim::SparseMode::Route& route ) {
   return !route.wildCard() && !route.spTree() && !route.rpfAttached() &&
          route.wc() != nullptr;
}

// Else by the route's own path; a border router's interface counts before either.
inline Routing::Pim::Rpf incomingRpf(
   const Routing::Pim::SparseMode::Route& route ) {
   return comesBySharedTree( route ) ? route.rpfWc() : route.rpf();
}

// Is what incomingRpf leads to, the source or the RP, on the link itself?
inline bool incomingAttached( const Routing::Pim::SparseMode::Route& route ) {
   return comesBySharedTree( route ) ? route.wc()->rpfAttached()
                                     : route.rpfAttached();
}

// The empty interface: nowhere, or not known. The model's "Null0" is no interface to
// those who look for one.
inline Vantu::IntfId incomingIntf( const Routing::Pim::SparseMode::Route& route ) {
   static const Vantu::IntfId null0( "Null0" );
   if ( comesBySharedTree( route ) && !route.mbr() ) return route.rpfWc().intfId;
   return route.iif() == null0 ? Vantu::IntfId() : route.iif();
}

}
