// A hook takes only functions with its signature.
#include "assembly/VrfMirror.h"

namespace Routing::Pim::SparseMode::Test {

void observe( VrfMirror::Observer& observer ) {
#ifndef BAD
   observer.writer = []( bool ) {};
   observer.writer = nullptr;
#elif BAD == 1
   observer.writer = []( const Mox::String& ) {};
#elif BAD == 2
   observer.route = []( const RouteKey& ) {};
#endif
}

}
