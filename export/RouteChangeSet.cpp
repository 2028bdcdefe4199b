#include "export/RouteChangeSet.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_ENTITY_TYPE( RouteChangeSet, PIMSM_ROUTE_CHANGE_SET_ATTRIBUTES )

}
