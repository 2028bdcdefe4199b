// The records that the forwarding process publishes. Counters wrap around, and
// restart when the kernel's entry or interface does.
#pragma once

#include "platform/pim/FlatForms.h"

namespace Published {

// clang-format off
#define PUBLISHED_UPCALL_KINDS( V )                        \
   V( noCacheUpcall ) V( wrongVifUpcall )                  \
   V( sharedTreeUpcall ) /* a source came by a (*,G) entry */

#define PUBLISHED_MFIB_VIF( FIELD ) \
   FIELD( Vantu::IntfId, key,        {} ) \
   FIELD( uint32_t,      vif,        0 ) /* the kernel's number of it in this table */ \
   FIELD( uint32_t,      ifIndex,    0 ) \
   FIELD( uint64_t,      packetsIn,  0 ) /* multicast to forward, not all traffic */ \
   FIELD( uint64_t,      bytesIn,    0 ) \
   FIELD( uint64_t,      packetsOut, 0 ) \
   FIELD( uint64_t,      bytesOut,   0 )

#define PUBLISHED_MFIB_CACHE( FIELD ) \
   FIELD( Routing::Pim::RouteKey, key,        {} ) \
   FIELD( uint64_t,               packets,    0 ) /* that came in where they should */ \
   FIELD( uint64_t,               bytes,      0 ) /* of all, also of those: */ \
   FIELD( uint64_t,               wrongIf,    0 ) /* came in by another interface */ \
   FIELD( double,                 lastPacket, 0.0 ) /* of `packets`; s on CLOCK_MONOTONIC, 0 = never */

#define PUBLISHED_MFIB_UPCALL( FIELD ) \
   FIELD( Routing::Pim::RouteIntfKey, key,   {} ) /* (S,G), where it came in */ \
   FIELD( Published::UpcallKind,      kind,  noCacheUpcall ) /* of the last */ \
   FIELD( uint64_t,                   count, 0 ) \
   FIELD( double,                     last,  0.0 ) /* s on CLOCK_MONOTONIC */
// clang-format on

// The reason why the kernel passed a packet up: it has no entry for it, or the
// packet came in by an interface that the entry sends out of.
MOX_ENUM( UpcallKind, PUBLISHED_UPCALL_KINDS )
MOX_ENUM_TEXT( UpcallKind, PUBLISHED_UPCALL_KINDS )

struct MfibVif {
   PUBLISHED_MFIB_VIF( MOX_RECORD_FIELD )
   bool operator==( const MfibVif& ) const = default;
};
struct MfibCache {
   PUBLISHED_MFIB_CACHE( MOX_RECORD_FIELD )
   bool operator==( const MfibCache& ) const = default;
};
struct MfibUpcall {
   PUBLISHED_MFIB_UPCALL( MOX_RECORD_FIELD )
   bool operator==( const MfibUpcall& ) const = default;
};

}

namespace Brane {

BRANE_FLAT_RECORD( Published::MfibVif, "MfibVif", PUBLISHED_MFIB_VIF )
BRANE_FLAT_RECORD( Published::MfibCache, "MfibCache", PUBLISHED_MFIB_CACHE )
BRANE_FLAT_RECORD( Published::MfibUpcall, "MfibUpcall", PUBLISHED_MFIB_UPCALL )

}
