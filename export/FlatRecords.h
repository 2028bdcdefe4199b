// The flat forms of the exported records. Any change of a record's bytes changes
// its layout fingerprint, by which every reader notices it.
#pragma once

#include "export/Records.h"
#include "platform/pim/FlatForms.h"

// clang-format off
#define PIMSM_FLAT_ASSERT_METRIC( FIELD ) \
   FIELD( bool,                                            rptBit ) \
   FIELD( Routing::Pim::SparseMode::AssertMetric::Preference, preference ) \
   FIELD( RouteMetric,                                     metric ) \
   FIELD( Vantu::IpGenAddr,                                address )
// clang-format on

namespace Brane {

using Routing::Pim::SparseMode::AssertMetric;
using Routing::Pim::SparseMode::AssertState;

BRANE_FLAT_RECORD( Routing::Pim::SparseMode::AssertMetric, "AssertMetric",
                   PIMSM_FLAT_ASSERT_METRIC )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::AssertInfo, "AssertInfo",
                   PIMSM_ASSERT_INFO )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::Brane::Route, "Route",
                   PIMSM_BRANE_ROUTE )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::Brane::Intf, "Intf", PIMSM_BRANE_INTF )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::Brane::RouteCounterKey,
                   "RouteCounterKey", PIMSM_BRANE_ROUTE_COUNTER_KEY )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::Brane::RouteCounter, "RouteCounter",
                   PIMSM_BRANE_ROUTE_COUNTER )

static_assert( sizeof( FlatForm<Routing::Pim::SparseMode::Brane::Route>::Bytes ) ==
               296 );
static_assert( sizeof( FlatForm<Routing::Pim::SparseMode::Brane::Intf>::Bytes ) ==
               144 );

}
