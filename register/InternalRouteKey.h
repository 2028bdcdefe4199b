// The key of an (S,G) route as a table's whole record: element of the four tables
// of RegisterStatus.
//
// Its text form is deliberately the bare form of its key.
#pragma once

#include "platform/pim/RouteKey.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_INTERNAL_ROUTE_KEY( FIELD ) \
   FIELD( Routing::Pim::RouteKey, key, {} )
// clang-format on

struct PIMSM_API InternalRouteKey {
   PIMSM_INTERNAL_ROUTE_KEY( MOX_RECORD_FIELD )

   InternalRouteKey() = default;
   explicit InternalRouteKey( const RouteKey& routeKey ) : key( routeKey ) {}
   // Reads the text form and advances `begin` past it. Throws ParseError,
   // RangeError.
   InternalRouteKey( Mox::StringIter& begin, Mox::StringIter end );

   bool operator==( const InternalRouteKey& ) const = default;
   // True for the default key: both addresses unspecified IPv4.
   bool operator!() const { return *this == InternalRouteKey(); }
};

PIMSM_API Mox::String valueToStrep( const InternalRouteKey& value );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                InternalRouteKey& out );
MOX_STREAM_TEXT( InternalRouteKey )

}
