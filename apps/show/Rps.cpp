#include "apps/show/Rps.h"

#include "apps/published/Incoming.h"

namespace Show {

Rps::Rps( const Mirror& mirror )
   : ranges_( mirror.family, *mirror.agent ),
     published_( mirror.agent->rp().size() != 0 ) {}

bool Rps::startsHere( const Routing::Pim::SparseMode::Route& route ) const {
   return ( route.wildCard() || Published::comesBySharedTree( route ) ) &&
          Published::incomingRpf( route ) == Routing::Pim::Rpf() &&
          ownRp( route.key().group );
}

}
