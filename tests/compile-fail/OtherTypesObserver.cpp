// An observer watches entities of its own type only, by plain pointers.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

struct Watcher : Route::NotifieeConst {};

void watch( Watcher& watcher, Mox::Ptr<Status> status, Mox::Ptr<Route> route ) {
#ifndef BAD
   watcher.notifierIs( route.get() );
   watcher.notifierIs( nullptr );
#elif BAD == 1
   watcher.notifierIs( status.get() );
#elif BAD == 2
   watcher.notifierIs( route );
#endif
   (void)status;
   (void)route;
}

}
