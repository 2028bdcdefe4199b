// What happens in a multicast agent, or a forwarding process, and why: one record an
// event, in the event log (EventLog.h).
#pragma once

#include "platform/pim/FlatForms.h"
#include "published/Refusal.h"
#include "published/Text.h"

namespace Published {

// clang-format off
#define PUBLISHED_EVENT_KINDS( V )                                                   \
   V( noEvent )                                                                      \
   V( routeCame ) V( routeGone )                                                     \
   V( rpfChanged )      /* from otherIntf and otherAddress to intf and address */    \
   V( onSourceTree ) V( onSharedTree ) /* the SPT bit */                             \
   V( sourceCame ) V( sourceGone )     /* keepalive timer */                         \
   V( joinCame )        /* of `address`, on `intf` */                                \
   V( joinPruned )      /* by `address`; others may still override */                \
   V( joinGone )        /* it was of `address`, as far as is known */                \
   V( rptPruneCame ) V( rptPruneGone ) /* (S,G,rpt) */                               \
   V( memberCame ) V( memberGone )     /* reported by `address` */                   \
   V( memberExcludes )  /* the source */                                             \
   V( assertWon ) V( assertGone )                                                    \
   V( assertLost )      /* to `address` with preference and metric */                \
   V( forwardBegan ) V( forwardEnded )                                               \
   V( joinSent ) V( pruneSent )        /* triggered, to `address` */                 \
   V( rptPruneSent ) V( rptJoinSent )                                                \
   V( registerBegan ) V( registerStopped ) V( registerProbes ) V( registerEnded )    \
   V( registerCame )    /* at the RP; of `address` */                                \
   V( neighborCame ) V( neighborGone )                                               \
   V( neighborRestarted ) /* `value`: its generation id */                           \
   V( drChanged )       /* from otherAddress to address */                           \
   V( querierChanged )                                                               \
   V( interfaceCame ) V( interfaceGone )                                             \
   V( refused )         /* the record's `refusal` says why; `value` 1: it asked for  \
                           nothing, as a prune or a leave */                         \
   V( entryWritten )    /* in the kernel, data from `intf`; `value` interfaces out */\
   V( entryRemoved ) V( entryRefused )                                               \
   V( wrongInterface )  /* data came by `intf` */                                    \
   V( started )         /* `value`: routes taken up */                               \
   V( configurationRead ) V( ended )

#define PUBLISHED_EVENT_CAUSES( V )                                                  \
   V( noCause )                                                                      \
   V( byMessage )       /* of `address` */                                           \
   V( byLeave )         /* a host has left, and no other one has answered since */   \
   V( byExpiry )        /* its hold time is over */                                  \
   V( byPrune )         /* that nobody has overridden */                             \
   V( byGoodbye )                                                                    \
   V( byNeighbor )      /* it came, went or restarted */                             \
   V( byInterface )     /* it has gone or has no address */                          \
   V( byConfiguration )                                                              \
   V( byUnicast )       /* the host's routes */                                      \
   V( byAssert )                                                                     \
   V( byData )                                                                       \
   V( byRestart )       /* a former process left it */                               \
   V( byState )         /* follows from the route's other states */

#define PUBLISHED_MESSAGE_KINDS( V )                                                 \
   V( noMessage ) V( helloMessage ) V( joinPruneMessage ) V( assertMessage )         \
   V( registerMessage ) V( registerStopMessage ) V( otherPimMessage )                \
   V( reportMessage ) V( queryMessage )

// `at` and the log's own times: seconds on CLOCK_MONOTONIC. A (*,G) route's source
// is unspecified; a missing address or interface is the default.
#define PUBLISHED_EVENT( FIELD )                              \
   FIELD( double,                at,           0.0 )          \
   FIELD( Published::EventKind,  kind,         noEvent )      \
   FIELD( Published::EventCause, cause,        noCause )      \
   FIELD( Published::Refusal,    refusal,      noAddress ) /* of `refused` */ \
   FIELD( uint32_t,              ipVersion,    0 ) /* 4 or 6; 0: neither */ \
   FIELD( Published::Text<104>,  vrf,          {} )           \
   FIELD( Vantu::IntfId,         intf,         {} )           \
   FIELD( Vantu::IntfId,         otherIntf,    {} )           \
   FIELD( Vantu::IpGenAddr,      group,        {} )           \
   FIELD( Vantu::IpGenAddr,      source,       {} )           \
   FIELD( Vantu::IpGenAddr,      address,      {} )           \
   FIELD( Vantu::IpGenAddr,      otherAddress, {} )           \
   FIELD( uint32_t,              preference,   0 )            \
   FIELD( uint32_t,              metric,       0 )            \
   FIELD( uint32_t,              value,        0 )            \
   FIELD( Published::MessageKind, message,     noMessage ) /* that was handled */
// clang-format on

MOX_ENUM( EventKind, PUBLISHED_EVENT_KINDS )
MOX_ENUM_TEXT( EventKind, PUBLISHED_EVENT_KINDS )
MOX_ENUM( EventCause, PUBLISHED_EVENT_CAUSES )
MOX_ENUM_TEXT( EventCause, PUBLISHED_EVENT_CAUSES )
// What a refused message, or one behind an event, was.
MOX_ENUM( MessageKind, PUBLISHED_MESSAGE_KINDS )
MOX_ENUM_TEXT( MessageKind, PUBLISHED_MESSAGE_KINDS )

struct Event {
   PUBLISHED_EVENT( MOX_RECORD_FIELD )
   bool operator==( const Event& ) const = default;
};

}

namespace Brane {

BRANE_FLAT_RECORD( Published::Event, "Event", PUBLISHED_EVENT )

}
