// The neighbour-monitoring service's knowledge of one address; the model stores it.
#pragma once

#include "platform/base/Record.h"
#include "platform/net/IntfId.h"

namespace Arp::MonitoredNexthop {

// clang-format off
#define PIMSM_MONITORED_NEXTHOP( FIELD ) \
   FIELD( Vantu::IntfId, intfId,   {} ) /* where it was seen; empty: nowhere */ \
   FIELD( bool,          resolved, false )
// clang-format on

struct Entry {
   PIMSM_MONITORED_NEXTHOP( MOX_RECORD_FIELD )
   bool operator==( const Entry& ) const = default;
};
MOX_RECORD_TEXT( Entry, "Arp::MonitoredNexthop::Entry", PIMSM_MONITORED_NEXTHOP )
MOX_STREAM_TEXT( Entry )

}
