// An entity on the stack must not compile: its first counted reference would also
// be its last.
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
