// From messages to the payload of their IP packets, checksum included: what `decodePim` and
// `decodeMembership` read back as it was.
//
// Numbers that do not fit their field are cut to the largest that does; of more groups, sources
// or records than a field can count the caller takes care, who also knows how long a packet may
// be. The sender's address counts for the checksum of IPv6 alone.
#pragma once

#include <cstdint>
#include <vector>

#include "packet/Membership.h"
#include "packet/Pim.h"

namespace Router {

// The type is that of the body; of a message without one nothing comes out.
// A register without a data packet is a null register's: it carries a header from `source`
// to `group`, for IPv6 with a PIM header behind it (RFC 7761, 4.9.3).
PIMSM_API std::vector<uint8_t> encodePim( const PimMessage& message,
                                          const Vantu::IpGenAddr& source,
                                          const Vantu::IpGenAddr& destination );

// An older version's report has one record, which says whether it is a leave (MLD: done):
// all else of it is not sent. Of older queries likewise what they have no room for.
PIMSM_API std::vector<uint8_t> encodeMembership(
   const MembershipMessage& message, const Vantu::IpGenAddr& source,
   const Vantu::IpGenAddr& destination );

}
