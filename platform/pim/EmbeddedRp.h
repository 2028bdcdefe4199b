// RPs that IPv6 group addresses carry in themselves (RFC 3956).
#pragma once

#include <optional>

#include "platform/base/Export.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim {

// The RP that the group's address names: the unspecified address where it names none
// that is valid (RFC 3956, 3); nothing for a group outside ff70::/12.
PIMSM_API std::optional<Vantu::IpGenAddr> embeddedRp(
   const Vantu::IpGenAddr& group );

}
