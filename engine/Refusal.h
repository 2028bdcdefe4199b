// The reasons why a valid packet, or an entry of one, changes nothing; the agent
// counts them.
#pragma once

#include <optional>

#include "platform/base/Enum.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

#define AGENT_REFUSALS( V )                                                        \
   V( noAddress )       /* the interface has no address of the family */           \
   V( passiveLink )     /* PIM on an interface that is for hosts only */           \
   V( ownPacket )       /* sent by the router that the agent plays */              \
   V( notToAllRouters ) /* not sent to ALL-PIM-ROUTERS */                          \
   V( otherType )       /* a message type without an engine */                     \
   V( unknownNeighbor ) /* its sender never said hello, or long ago */             \
   V( otherUpstream )   /* a join/prune addressed to another router */             \
   V( notMulticast )    /* the group is no multicast address */                    \
   V( linkLocalGroup )  /* the group never leaves its link */                      \
   V( partialMask )     /* a range of groups or sources */                         \
   V( badSource )       /* unspecified or multicast */                             \
   V( badFlags )        /* a wildcard without the RPT bit */                       \
   V( tooManyWaiting )  /* came while the tables were reloaded */                  \
   V( noRoute )         /* an assert for a group that is not routed */             \
   V( ssmGroup )        /* shared-tree state for a source-specific group */        \
   V( noEmbeddedRp )    /* shared-tree state; its address names no RP for us */    \
   V( rpMismatch )     /* a (*,G) join or register-stop of another RP than ours */ \
   V( notToUs )        /* a register or register-stop to another router */         \
   V( stopOfPeer )     /* a register-stop of another router of an anycast RP */    \
   V( barredRegister ) /* of an (S,G) that the register-filter bars */             \
   V( notTheRp )       /* a register for a group that another router is RP of */   \
   V( notRegistered )  /* a register-stop for a source that is not on a link */    \
   V( tableFull )      /* a route that its table has no room for */                \
   V( tooManySources ) /* of a group on a link that is full of them */             \
   V( tooManyGroups )  /* with members on a link that is full of them */           \
   V( notTheQuerier )  /* a query of a router that another one outranks */         \
   V( tooManyNeighbors ) /* a hello on a link that is full of them */              \
   V( wrongTtl )         /* PIM of a link with another TTL than 1 */               \
   V( offSubnet )        /* a report or query of no subnet of the link */          \
   V( barredNeighbor )   /* of a router that the neighbor-filter bars */           \
   V( barredJoin )       /* that the join-prune-filter bars */                     \
   V( barredMember )     /* that the access-group bars */                          \
   V( beyondBoundary )   /* a join, member or source of a group that ends here */
MOX_ENUM( Refusal, AGENT_REFUSALS )
MOX_ENUM_TEXT( Refusal, AGENT_REFUSALS )

#define AGENT_REFUSAL_ONE( name ) +1
constexpr uint32_t refusalCount = 0 AGENT_REFUSALS( AGENT_REFUSAL_ONE );
#undef AGENT_REFUSAL_ONE

// The reason why the address is no group that routers forward, or no source; empty
// otherwise.
inline std::optional<Refusal> refusalOfGroup( const Vantu::IpGenAddr& group ) {
   if ( !group.isMulticast() ) return notMulticast;
   if ( group.isLinkLocalMulticast() ) return linkLocalGroup;
   return std::nullopt;
}
inline std::optional<Refusal> refusalOfSource( const Vantu::IpGenAddr& source ) {
   if ( source.isUnspecified() || source.isMulticast() ) return badSource;
   return std::nullopt;
}
inline std::optional<Refusal> refusalOfRoute( const Vantu::IpGenAddr& source,
                                              const Vantu::IpGenAddr& group ) {
   const auto refusal = refusalOfGroup( group );
   return refusal ? refusal : refusalOfSource( source );
}

}
