// Assert metrics and the assert state of an interface (RFC 7761, 4.6).
#pragma once

#include "platform/base/Enum.h"
#include "platform/base/Record.h"
#include "platform/net/IpGenAddr.h"
#include "platform/pim/RouteMetric.h"

namespace Routing::Pim::SparseMode {

// The quality of a router's path to the source or RP; the better one forwards (RFC
// 7761, 4.6.3). The default is the infinite metric, which no router can have.
//
// Text: "[S] 10.1.1.2 [110/20]", R instead of S on the shared tree. Reading accepts
// any other letter as R. Fewer than the four items are a fatal assertion, "matches
// == 4"; a preference above its limit is a RangeError, a missing last bracket a
// ParseError.
struct PIMSM_API AssertMetric {
   using Preference = Packet::AssertMessage::AssertMetricPreference;

   bool rptBit = true;
   Preference preference = Preference::max;
   RouteMetric metric = { 0xffffffff };
   Vantu::IpGenAddr address;

   bool operator==( const AssertMetric& ) const = default;

   // Is this the infinite metric?
   bool operator!() const { return *this == AssertMetric(); }

   // Is this metric better? The first difference decides: a clear RPT bit, the
   // lower preference, the lower metric, the higher address.
   bool operator<( const AssertMetric& other ) const;
};

PIMSM_API Mox::String valueToStrep( const AssertMetric& metric );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                AssertMetric& out );
MOX_STREAM_TEXT( AssertMetric )

// Has the text all four items, so that reading it cannot assert? Throws RangeError
// for a metric beyond 32 bits.
PIMSM_API bool hasMetricItems( Mox::StringView text );

// clang-format off
#define PIMSM_ASSERT_STATES( V ) \
   V( assertNoInfo ) V( iAmAssertWinner ) V( iAmAssertLoser )

#define PIMSM_ASSERT_INFO( FIELD ) \
   FIELD( AssertState,  assertState,        assertNoInfo ) \
   FIELD( AssertMetric, assertWinnerMetric, {} )
// clang-format on

MOX_ENUM( AssertState, PIMSM_ASSERT_STATES )
MOX_ENUM_TEXT( AssertState, PIMSM_ASSERT_STATES )

// Both throw RangeError on an unknown number or name.
PIMSM_API AssertState AssertStateInstance( uint32_t number );
PIMSM_API AssertState AssertStateInstance( const Mox::String& name );

// An interface's assert state with the winner's metric.
struct AssertInfo {
   PIMSM_ASSERT_INFO( MOX_RECORD_FIELD )
   bool operator==( const AssertInfo& ) const = default;
};
MOX_RECORD_TEXT( AssertInfo, "Routing::Pim::SparseMode::AssertInfo",
                 PIMSM_ASSERT_INFO )
MOX_STREAM_TEXT( AssertInfo )

}
