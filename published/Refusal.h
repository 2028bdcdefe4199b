// The reasons why a valid packet, or an entry of one, changes nothing; the agent
// counts them, and its event log tells of each.
#pragma once

#include "platform/base/Enum.h"

namespace Published {

#define PUBLISHED_REFUSALS( V )                                                    \
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
   V( notLinkLocal ) /* IPv6 PIM of a link from another address than link-local */ \
   V( noRouterAlert )  /* MLD without the router alert option */                   \
   V( offSubnet )      /* a report or query of no subnet of the link */            \
   V( barredNeighbor ) /* of a router that the neighbor-filter bars */             \
   V( barredJoin )     /* that the join-prune-filter bars */                       \
   V( barredMember )   /* that the access-group bars */                            \
   V( beyondBoundary ) /* a join, member or source of a group that ends here */
MOX_ENUM( Refusal, PUBLISHED_REFUSALS )
MOX_ENUM_TEXT( Refusal, PUBLISHED_REFUSALS )

#define PUBLISHED_REFUSAL_ONE( name ) +1
constexpr uint32_t refusalCount = 0 PUBLISHED_REFUSALS( PUBLISHED_REFUSAL_ONE );
#undef PUBLISHED_REFUSAL_ONE

}
