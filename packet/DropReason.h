// The reasons for dropping a packet; the agent counts them.
#pragma once

#include <cstdint>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Router {

// clang-format off
//   name               text
#define AGENT_DROP_REASONS( R ) \
  R( notDropped,        "not dropped" ) \
  R( missed,            "it came faster than the agent could read" ) \
  R( truncatedCapture,  "the capture holds only a part of the packet" ) \
  R( unknownLink,       "the link type is not supported" ) \
  R( notIp,             "neither IPv4 nor IPv6" ) \
  R( badIpHeader,       "the IP header contradicts itself" ) \
  R( fragment,          "a fragment of an IP packet" ) \
  R( otherProtocol,     "neither PIM nor group membership" ) \
  R( badPimVersion,     "the PIM version is not 2" ) \
  R( badChecksum,       "the checksum is wrong" ) \
  R( truncatedMessage,  "the message ends early" ) \
  R( offLink,           "a membership message that is not from the link itself" ) \
  R( badAddress,        "an encoded address is malformed or of another family" ) \
  R( badOption,         "a hello option has a wrong length" ) \
  R( badRegister,       "a register holds no packet of its own family" )
// clang-format on

#define AGENT_DROP_NAME( name, text ) name,
enum DropReason : uint32_t { AGENT_DROP_REASONS( AGENT_DROP_NAME ) };
#undef AGENT_DROP_NAME

#define AGENT_DROP_ONE( name, text ) +1
constexpr uint32_t dropReasonCount = 0 AGENT_DROP_REASONS( AGENT_DROP_ONE );
#undef AGENT_DROP_ONE

// The reason's name for metrics, and its sentence for people.
PIMSM_API Mox::StringView dropName( DropReason reason );
PIMSM_API Mox::StringView dropText( DropReason reason );

}
