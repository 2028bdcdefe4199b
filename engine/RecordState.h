// What keeps an interface record, and with it its route.
#pragma once

#include "model/Route.h"

namespace Router {

// Has the record a downstream or assert state, or members, of its own?
inline bool holdsState( const Routing::Pim::SparseMode::Intf& intf ) {
   using Routing::Pim::SparseMode::Intf;
   return intf.joinState() != Intf::noInfo || intf.rptState() != Intf::rptNoInfo ||
          intf.localReceiverInclude() || intf.localReceiverExclude() ||
          intf.assertInfo().assertState != Routing::Pim::SparseMode::assertNoInfo;
}

// Does an (S,G) record stand for that of the interface in the (*,G) route `shared`? Null:
// there is none. A (*,G) record inherits nothing from itself.
inline bool inherits( const Routing::Pim::SparseMode::Intf& intf,
                      const Routing::Pim::SparseMode::Route* shared ) {
   if ( shared == nullptr || shared == intf.parentRoute() ) return false;
   const Routing::Pim::SparseMode::Intf* theirs =
      shared->routeIntf( intf.intfId() );
   return theirs != nullptr && holdsState( *theirs );
}

// A route goes when this is false; records that it only inherits do not keep it, a
// source that sends does (its keepalive timer runs).
inline bool holdsState( const Routing::Pim::SparseMode::Route& route ) {
   if ( !route.katExpired() ) return true;
   for ( const Routing::Pim::SparseMode::Intf& intf : route.routeIntf() ) {
      if ( holdsState( intf ) ) return true;
   }
   return false;
}

}
