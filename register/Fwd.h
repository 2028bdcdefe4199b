// Forward declarations of the register tables.
#pragma once

namespace Routing::Pim::SparseMode {

struct InternalRouteKey;
struct AdvertisedSg;
struct RegisterCapacities;
class RegisterStatus;
class AdvertisedSgStatus;

}
