#include "platform/pim/SparseModeConfig.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Config, PIMSM_SPARSE_MODE_CONFIG_ATTRIBUTES )

}
