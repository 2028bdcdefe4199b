#include "model/Source.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Source, PIMSM_SOURCE_ATTRIBUTES )

}
