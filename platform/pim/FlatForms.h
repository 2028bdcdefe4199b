// The flat forms of the shared PIM types in shared-memory records.
#pragma once

#include "platform/mount/Flat.h"
#include "platform/pim/PimStatus.h"
#include "platform/pim/RouteKey.h"
#include "platform/pim/Rpf.h"

namespace Brane {

using Routing::RouteMetric;
using Routing::Pim::RouteKey;

template <>
struct FlatForm<RouteMetric> {
   using Bytes = uint32_t;
   static Mox::String typeText() { return "RouteMetric"; }
   static void write( const RouteMetric& value, Bytes& bytes ) {
      bytes = value.value;
   }
   static bool read( const Bytes& bytes, RouteMetric& out ) {
      out.value = bytes;
      return true;
   }
};

template <>
struct FlatForm<Routing::Pim::Packet::AssertMessage::AssertMetricPreference> {
   using Preference = Routing::Pim::Packet::AssertMessage::AssertMetricPreference;
   using Bytes = uint32_t;
   static Mox::String typeText() { return "AssertMetricPreference"; }
   static void write( const Preference& value, Bytes& bytes ) {
      bytes = value.value();
   }
   static bool read( const Bytes& bytes, Preference& out ) {
      if ( bytes > Preference::max ) return false;
      out = bytes;
      return true;
   }
};

BRANE_FLAT_RECORD( Routing::Pim::RouteKey, "RouteKey", PIMSM_ROUTE_KEY )
BRANE_FLAT_RECORD( Routing::Pim::RouteIntfKey, "RouteIntfKey",
                   PIMSM_ROUTE_INTF_KEY )
BRANE_FLAT_RECORD( Routing::Pim::Rpf, "Rpf", PIMSM_RPF )

static_assert( sizeof( FlatForm<Routing::Pim::RouteKey>::Bytes ) == 40 );
static_assert( sizeof( FlatForm<Routing::Pim::RouteIntfKey>::Bytes ) == 72 );
static_assert( sizeof( FlatForm<Routing::Pim::Rpf>::Bytes ) == 60 );

}
