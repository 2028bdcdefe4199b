#include "model/StatusColl.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( StatusColl, PIMSM_STATUS_COLL_ATTRIBUTES )

MOX_FACTORY( StatusColl, []( Mox::StringView ) { return statusCollFactory(); } )

Mox::Ptr<StatusColl> statusCollFactory() {
   return Mox::newEntity<StatusColl>();
}

}
