// What keeps an interface record, and with it its route.
#pragma once

#include "model/Route.h"

namespace Agent {

// Has the record a downstream state or members of its own?
inline bool holdsState( const Routing::Pim::SparseMode::Intf& intf ) {
   using Routing::Pim::SparseMode::Intf;
   return intf.joinState() != Intf::noInfo || intf.rptState() != Intf::rptNoInfo ||
          intf.localReceiverInclude() || intf.localReceiverExclude();
}

// Does an (S,G) record stand for the (*,G) route's record of the interface?
inline bool inherits( const Routing::Pim::SparseMode::Intf& intf ) {
   const Routing::Pim::SparseMode::Intf* shared = intf.wcIntf();
   return shared != nullptr && shared != &intf && holdsState( *shared );
}

// A route goes when this is false; records that it only inherits do not keep it.
inline bool holdsState( const Routing::Pim::SparseMode::Route& route ) {
   for ( const Routing::Pim::SparseMode::Intf& intf : route.routeIntf() ) {
      if ( holdsState( intf ) ) return true;
   }
   return false;
}

}
