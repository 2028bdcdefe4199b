#include "platform/pim/GroupSourceMap.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Group, PIMSM_GROUP_ATTRIBUTES )
MOX_ENTITY_TYPE( GroupSourceMap, PIMSM_GROUP_SOURCE_MAP_ATTRIBUTES )

MOX_FACTORY( GroupSourceMap,
             []( Mox::StringView ) { return Mox::newEntity<GroupSourceMap>(); } )

}
