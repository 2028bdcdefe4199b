// The messages that the agent understands, each in one IP packet.
#pragma once

#include "packet/Membership.h"
#include "packet/Pim.h"

namespace Router {

using Message = std::variant<PimMessage, MembershipMessage>;

// Fills `out` and returns notDropped, or returns the reason and leaves `out`
// unspecified.
[[nodiscard]] inline DropReason decodeMessage( const IpPacket& packet,
                                               Message& out ) {
   if ( packet.protocol == pimProtocol )
      return decodePim( packet, out.emplace<PimMessage>() );
   if ( isMembership( packet ) )
      return decodeMembership( packet, out.emplace<MembershipMessage>() );
   return otherProtocol;
}

}
