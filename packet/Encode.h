// Encodes messages to the payload of their IP packets, checksum included;
// `decodePim` and `decodeMembership` read them back unchanged.
//
// A number too large for its field is cut to the largest that fits. Addresses are
// written in the packet's family; unspecified ones may be of either. REQUIRES: the
// numbers of groups (PimJoinPrune::maxGroups), sources and records (65,535) fit their
// fields. The caller sees to the packet's size. The sender's address is used for
// IPv6's checksum and as the family.
#pragma once

#include <cstdint>
#include <vector>

#include "packet/Membership.h"
#include "packet/Pim.h"

namespace Router {

// The body gives the type; a message without a body gives nothing. A register
// without a data packet becomes a null register: its inner header goes from
// `source` to `group`, for IPv6 with a PIM header behind it (RFC 7761, 4.9.3).
PIMSM_API std::vector<uint8_t> encodePim( const PimMessage& message,
                                          const Vantu::IpGenAddr& source,
                                          const Vantu::IpGenAddr& destination );

// Of an older version's report the first record is sent; it says whether the report
// is a leave (MLD: done). Without a record nothing is returned. A query omits the
// fields that its version lacks.
PIMSM_API std::vector<uint8_t> encodeMembership(
   const MembershipMessage& message, const Vantu::IpGenAddr& source,
   const Vantu::IpGenAddr& destination );

}
