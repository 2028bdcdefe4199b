// The advertised (S,G) of one VRF and family, as the configuration lists them.
#pragma once

#include "engine/Config.h"
#include "engine/RouterCounters.h"
#include "register/AdvertisedSgStatus.h"

namespace Router {

// Makes the table hold the configuration's entries of the family and no others; what
// stands there already is not written again. An entry that finds no room is counted as
// refused.
PIMSM_API void publishAdvertised(
   Routing::Pim::SparseMode::AdvertisedSgStatus& table, const VrfConfig& config,
   Vantu::AddressFamily family, RouterCounters& counters );

}
