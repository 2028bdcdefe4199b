// The side of a shared-memory table that a mount takes.
#pragma once

#include "platform/base/Enum.h"

namespace Brane {

#define PIMSM_TABLE_ROLES( V ) V( tableWriter ) V( tableReader )
MOX_ENUM( TableRole, PIMSM_TABLE_ROLES )
MOX_ENUM_TEXT( TableRole, PIMSM_TABLE_ROLES )

}
