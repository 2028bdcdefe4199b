// Where a route's traffic comes in.
#pragma once

#include "model/Route.h"

namespace Published {

// Along the shared tree while an (S,G) route is not on the source tree (RFC 7761, 4.2),
// else by the route's own path; a border router's interface counts before either.
inline Routing::Pim::Rpf incomingRpf(
   const Routing::Pim::SparseMode::Route& route ) {
   if ( route.wildCard() || route.spTree() || route.wc() == nullptr )
      return route.rpf();
   return route.rpfWc();
}

// Is what incomingRpf leads to, the source or the RP, on the link itself?
inline bool incomingAttached( const Routing::Pim::SparseMode::Route& route ) {
   if ( route.wildCard() || route.spTree() || route.wc() == nullptr )
      return route.rpfAttached();
   return route.wc()->rpfAttached();
}

// The empty interface: nowhere, or not known. The model's "Null0" is no interface to
// those who look for one.
inline Vantu::IntfId incomingIntf( const Routing::Pim::SparseMode::Route& route ) {
   static const Vantu::IntfId null0( "Null0" );
   if ( route.wildCard() || route.mbr() || route.spTree() || route.wc() == nullptr )
      return route.iif() == null0 ? Vantu::IntfId() : route.iif();
   return route.rpfWc().intfId;
}

}
