// The changes of a route, or of one of its interfaces, since its last review. The
// model stores these words; the protocol engines set and clear their bits.
#pragma once

#include "platform/base/Flags.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_CHANGE_FLAGS( FLAG ) \
   FLAG( rpfRouteChanged,              'R' ) \
   FLAG( rpfNeighborStatusChanged,     'N' ) \
   FLAG( prevRpfNeighborStatusChanged, 'J' ) \
   FLAG( rpfNeighborGenIdChanged,      'H' ) \
   FLAG( prevRpfNeighborGenIdChanged,  'K' ) \
   FLAG( rpfIntfStatusChanged,         'I' ) \
   FLAG( prevRpfIntfStatusChanged,     'L' ) \
   FLAG( rpfDrStatusChanged,           'D' ) \
   FLAG( sptThresholdImmediate,        ' ' ) \
   FLAG( rpChanged,                    'P' ) \
   FLAG( ssmRangeChanged,              'S' ) \
   FLAG( mbrIntfStatusChanged,         'B' ) \
   FLAG( mfibWaitListChanged,          'W' ) \
   FLAG( wcProgrammable,               ' ' ) \
   FLAG( rpfFrrNeighborStatusChanged,  'A' ) \
   FLAG( rpfFrrNeighborGenIdChanged,   'Z' ) \
   FLAG( rpfFrrIntfStatusChanged,      'C' ) \
   FLAG( sourceInjectChanged,          ' ' ) \
   FLAG( groupFilterChanged,           ' ' )

#define PIMSM_INTF_CHANGE_FLAGS( FLAG ) \
   FLAG( assertWinnerNeighborChanged, 'W' ) \
   FLAG( addressChanged,              'A' ) \
   FLAG( drStatusChanged,             'D' ) \
   FLAG( pimIntfDeleted,              'P' ) \
   FLAG( fastFailoverChanged,         'F' ) \
   FLAG( vxlanIntfChanged,            'V' )
// clang-format on

MOX_FLAGS( ChangeFlags, "Routing::Pim::SparseMode::", PIMSM_CHANGE_FLAGS )

MOX_FLAGS( IntfChangeFlags, "Routing::Pim::SparseMode::", PIMSM_INTF_CHANGE_FLAGS )

// Compact forms for traces: the letters of the set flags in bit order, "0" for an
// empty word. Deliberately, a route's Z comes last, after C.
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const ChangeFlags* flags );
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const IntfChangeFlags* flags );

}
