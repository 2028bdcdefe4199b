#include "platform/pim/PimStatus.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim {

MOX_ENTITY_TYPE( Intf, PIMSM_PIM_INTF_ATTRIBUTES )
MOX_ENTITY_TYPE( Status, PIMSM_PIM_STATUS_ATTRIBUTES )

MOX_FACTORY( Status, []( Mox::StringView ) { return Mox::newEntity<Status>(); } )

}
