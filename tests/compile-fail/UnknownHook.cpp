// A hook of an unknown attribute, or with other arguments, overrides nothing.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

struct Watcher : Route::NotifieeConst {
   using NotifieeConst::onRouteIntf;
#ifndef BAD
   void onUpJoinState() override {}
   void onRouteIntf( const Vantu::IntfId& ) override {}
#elif BAD == 1
   void onJoinState() override {}
#elif BAD == 2
   void onRouteIntf( int ) override {}
#endif
};

}
