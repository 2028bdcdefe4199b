// The reverse path of a route: its incoming interface and upstream neighbour, and
// the unicast route that gave them. The default value means that there is none.
#pragma once

#include "platform/base/Record.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/pim/RouteMetric.h"

namespace Routing::Pim {

// clang-format off
#define PIMSM_RPF( FIELD ) \
   FIELD( Vantu::IntfId,    intfId,     {} ) \
   FIELD( Vantu::IpGenAddr, neighbor,   {} ) \
   FIELD( uint8_t,          preference, 0 ) /* administrative distance */ \
   FIELD( RouteMetric,      metric,     {} )
// clang-format on

struct Rpf {
   PIMSM_RPF( MOX_RECORD_FIELD )
   bool operator==( const Rpf& ) const = default;

   // Do both lead to the same upstream neighbour? Preference and metric play no
   // part.
   bool sameNeighbor( const Rpf& other ) const {
      return intfId == other.intfId && neighbor == other.neighbor;
   }
};
MOX_RECORD_TEXT( Rpf, "Routing::Pim::Rpf", PIMSM_RPF )

// For traces: "'eth0' via 192.0.2.1 [110/20]", "none" for the default.
PIMSM_API std::ostream& operator<<( std::ostream& stream, const Rpf& rpf );

}
