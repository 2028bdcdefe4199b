// Where the tables of a VRF are mounted.
#pragma once

#include "platform/base/String.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/VrfName.h"

namespace MoxBrane {

// "routing/<kind>/<vrf>" for IPv4, "routing6/<kind>/<vrf>" for IPv6. Another family
// is fatal, "Unsupported address family". Throws RangeError for a VRF name that
// cannot be part of a path: empty, ".", "..", or with a slash or NUL.
PIMSM_API Mox::String vrfPath( Mox::StringView kind, Vantu::AddressFamily family,
                               const L3::VrfName& vrf );

// The path of another kind of the same VRF and family: "a/<kind>/v" for "a/b/v". A
// path without two slashes stays as it is.
PIMSM_API Mox::String besidePath( Mox::StringView path, Mox::StringView kind );

}
