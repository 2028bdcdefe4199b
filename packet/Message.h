// The messages that the agent understands, of one IP packet each.
#pragma once

#include "packet/Membership.h"
#include "packet/Pim.h"

namespace Router {

using Message = std::variant<PimMessage, MembershipMessage>;

// Fills `out` and returns notDropped, or says why not; `out` is then unspecified.
[[nodiscard]] inline DropReason decodeMessage( const IpPacket& packet,
                                               Message& out ) {
   if ( packet.protocol == pimProtocol )
      return decodePim( packet, out.emplace<PimMessage>() );
   if ( isMembership( packet ) )
      return decodeMembership( packet, out.emplace<MembershipMessage>() );
   return otherProtocol;
}

}
