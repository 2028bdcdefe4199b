#include "apps/mirror/Rps.h"

namespace Show {

Rps::Rps( const Mirror& mirror )
   : ranges_( mirror.family, *mirror.agent ),
     published_( mirror.agent->rp().size() != 0 ) {}

// A router that speaks names the register interface as the incoming one.
bool Rps::startsHere( const Routing::Pim::SparseMode::Route& route ) const {
   return ( route.wildCard() || route.comesBySharedTree() ) &&
          route.incomingRpf().neighbor.isUnspecified() &&
          !route.incomingAttached() && ownRp( route.key().group );
}

}
