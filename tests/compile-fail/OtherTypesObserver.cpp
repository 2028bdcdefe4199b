// An observer watches entities of its own type only.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

struct Watcher : Route::NotifieeConst {};

#ifdef BAD
void watch( Watcher& watcher, Status& status ) {
   watcher.notifierIs( &status );
}
#else
void watch( Watcher& watcher, Route& route ) {
   watcher.notifierIs( &route );
}
#endif

}
