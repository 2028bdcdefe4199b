// The conditions under which interface records and routes stay.
#pragma once

#include "model/Route.h"

namespace Router {

// Does the record have a downstream or assert state, or members, of its own?
inline bool holdsState( const Routing::Pim::SparseMode::Intf& intf ) {
   using Routing::Pim::SparseMode::Intf;
   return intf.joinState() != Intf::noInfo || intf.rptState() != Intf::rptNoInfo ||
          intf.localReceiverInclude() || intf.localReceiverExclude() ||
          intf.assertInfo().assertState != Routing::Pim::SparseMode::assertNoInfo;
}

// Has the record no such state, and none to inherit from the interface's record in the
// (*,G) route `shared`? Null: no such route.
inline bool isBare( const Routing::Pim::SparseMode::Intf& intf,
                    const Routing::Pim::SparseMode::Route* shared ) {
   if ( holdsState( intf ) ) return false;
   const Routing::Pim::SparseMode::Intf* theirs =
      shared == nullptr ? nullptr : shared->routeIntf( intf.intfId() );
   return theirs == nullptr || !holdsState( *theirs );
}

// A route is removed when this is false. Inherited records alone do not keep it; a
// sending source does, by its keepalive timer.
inline bool holdsState( const Routing::Pim::SparseMode::Route& route ) {
   if ( !route.katExpired() ) return true;
   for ( const Routing::Pim::SparseMode::Intf& intf : route.routeIntf() ) {
      if ( holdsState( intf ) ) return true;
   }
   return false;
}

}
