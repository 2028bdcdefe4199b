// What `forward` and `fastForward` of a route's records should be, for a caller that goes
// through all of them.
#pragma once

#include "model/Fwd.h"
#include "platform/base/Export.h"

namespace Routing::Pim::SparseMode {

struct ForwardingDesired {
   bool forward = false;
   bool fastForward = false;
};

// As Intf::forwardDesired() and fastForwardDesired(), without a search for the (*,G) route
// by each record: `shared` is what its route's wc() answers, null included.
PIMSM_API ForwardingDesired forwardingDesired( const Intf& intf,
                                               const Route* shared );

}
