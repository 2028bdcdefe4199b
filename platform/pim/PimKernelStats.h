// Forwarding counters of one route; they wrap around.
#pragma once

#include "platform/base/Record.h"

namespace Routing::Pim {

// clang-format off
#define PIMSM_KERNEL_STATS( FIELD ) \
   FIELD( uint64_t, packets,  0 ) \
   FIELD( uint64_t, bytes,    0 ) \
   FIELD( uint64_t, wrongIif, 0 ) /* packets that came in elsewhere */
// clang-format on

struct PimKernelStats {
   PIMSM_KERNEL_STATS( MOX_RECORD_FIELD )
   bool operator==( const PimKernelStats& ) const = default;
};
MOX_RECORD_TEXT( PimKernelStats, "Routing::Pim::PimKernelStats",
                 PIMSM_KERNEL_STATS )
MOX_STREAM_TEXT( PimKernelStats )

}
