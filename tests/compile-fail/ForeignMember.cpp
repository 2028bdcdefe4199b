// Only its owner adds to a collection.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

void smuggle( Status& status, const RouteKey& key ) {
#ifdef BAD
   status.routeAdd( new Route( key, nullptr ) );
#else
   status.routeIs( key );
#endif
}

}
