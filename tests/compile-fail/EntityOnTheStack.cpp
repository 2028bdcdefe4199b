// An entity is held by a counted pointer: the first reference to another would be its last.
#include "model/UpstreamInfo.h"

namespace Routing::Pim::SparseMode::Test {

void update( const Rpf& rpf ) {
#ifdef BAD
   UpstreamInfo upstream;
   upstream.doUpdateRpf( rpf );
#else
   upstreamInfoFactory()->doUpdateRpf( rpf );
#endif
}

}
