// A hook for an attribute that the entity does not have overrides nothing.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

struct Watcher : Route::NotifieeConst {
#ifdef BAD
   void onJoinState() override {}
#else
   void onUpJoinState() override {}
#endif
};

}
