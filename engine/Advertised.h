// The advertised (S,G) routes of one VRF and family, as the configuration lists
// them.
#pragma once

#include "engine/Config.h"
#include "engine/RouterCounters.h"
#include "register/AdvertisedSgStatus.h"

namespace Router {

// Makes the table hold exactly the configuration's entries of the family. An
// existing entry is not written again. An entry without room is counted as refused.
PIMSM_API void publishAdvertised(
   Routing::Pim::SparseMode::AdvertisedSgStatus& table, const VrfConfig& config,
   Vantu::AddressFamily family, RouterCounters& counters );

}
