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

// The empty interface: nowhere, or not known.
inline Vantu::IntfId incomingIntf( const Routing::Pim::SparseMode::Route& route ) {
   if ( route.wildCard() || route.mbr() || route.spTree() || route.wc() == nullptr )
      return route.iif();
   return route.rpfWc().intfId;
}

}
