// Group membership messages: IGMP versions 1 to 3 (RFC 1112, 2236, 3376) and MLD
// versions 1 and 2 (RFC 2710, 3810), decoded into one form. MLDv1 counts as version
// 2 and MLDv2 as version 3, after their IGMP counterparts. A message is checked as
// a whole before any part of it is used.
#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "packet/DropReason.h"
#include "packet/Ip.h"
#include "platform/base/Enum.h"

namespace Router {

constexpr uint8_t igmpProtocol = 2;
constexpr uint8_t icmp6Protocol = 58;

// The record types of a report (RFC 3376, 4.2.12), numbered as on the wire from 1.
#define AGENT_MEMBERSHIP_RECORDS( V ) \
   V( isInclude ) V( isExclude ) V( toInclude ) V( toExclude ) V( allow ) V( block )
MOX_ENUM( MembershipRecordType, AGENT_MEMBERSHIP_RECORDS )
MOX_ENUM_TEXT( MembershipRecordType, AGENT_MEMBERSHIP_RECORDS )

struct MembershipRecord {
   MembershipRecordType type = isInclude;
   Vantu::IpGenAddr group;
   std::vector<Vantu::IpGenAddr> sources;
};

// An older version's report is one `isExclude` record, its leave (MLD: done) one
// `toInclude` record, both without sources. Records of unknown types are skipped
// (RFC 3376, 4.2.12).
struct MembershipReport {
   uint8_t version = 3;
   std::vector<MembershipRecord> records;
};

struct MembershipQuery {
   uint8_t version = 3;
   Vantu::IpGenAddr group;  // unspecified: a general query
   std::vector<Vantu::IpGenAddr> sources;
   double maxResponse = 0.0;  // s; version 1: 10
   bool suppress = false;     // other routers keep their timers
   uint8_t robustness = 0;    // 0: not given
   double interval = 0.0;     // s; 0: not given
};

using MembershipMessage = std::variant<MembershipReport, MembershipQuery>;

// Is it an IGMP or MLD packet? IGMP in IPv4 only, MLD in IPv6 only, by its ICMPv6
// type.
PIMSM_API bool isMembership( const IpPacket& packet );

// Fills `out` and returns notDropped, or returns the reason and leaves `out`
// unspecified. Accepts a message only with a TTL or hop limit of 1. Accepts MLD
// only from a link-local address, and a report also from the unspecified one (RFC
// 3810, 5.1.14 and 5.2.13).
[[nodiscard]] PIMSM_API DropReason decodeMembership( const IpPacket& packet,
                                                     MembershipMessage& out );

}
