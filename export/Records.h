// The exported records: flat copies of the route model, values only, so that
// another process can rebuild the model from them. One definition for writer and
// reader; doc/tables.md draws the bytes.
//
// Each has a text form in the value notation, a readable one for traces
// (braneString), equality, and operator!, true for an empty slot: a default record
// under the default key.
#pragma once

#include "export/Fwd.h"
#include "model/AssertMetric.h"
#include "model/Intf.h"
#include "model/Route.h"
#include "platform/pim/RouteKey.h"
#include "platform/pim/Rpf.h"

namespace Routing::Pim::SparseMode::Brane {

// clang-format off
#define PIMSM_BRANE_ROUTE( FIELD ) \
   FIELD( Routing::Pim::RouteKey,            key,              {} ) \
   FIELD( Routing::Pim::SparseMode::Route::RouteFlags, routeFlags, {} ) \
   FIELD( double,                            creationTime,     0 ) /* s */ \
   FIELD( Routing::Pim::Rpf,                 rpf,              {} ) /* of umh */ \
   FIELD( Routing::Pim::Rpf,                 prevRpf,          {} ) /* of umh */ \
   FIELD( bool,                              rpfAttached,      false ) /* of umh */ \
   FIELD( Vantu::IntfId,                     mbrIif,           {} ) /* of umh */ \
   FIELD( Routing::Pim::Rpf,                 rpfFrr,           {} ) /* of umhFrr */ \
   FIELD( bool,                              rpfFrrAttached,   false ) /* of umhFrr */ \
   FIELD( Routing::Pim::SparseMode::Route::IifSwitchState, iifSwitchState, {} ) \
   FIELD( bool,                              iifSwitchPending, false ) \
   FIELD( Routing::Pim::SparseMode::UpJoinState, upJoinState,  {} ) \
   FIELD( Routing::Pim::SparseMode::UpRptState,  upRptState,   {} ) /* of umh */

#define PIMSM_BRANE_INTF( FIELD ) \
   FIELD( Routing::Pim::RouteIntfKey,        key,                  {} ) \
   FIELD( bool,                              toBeDeleted,          false ) \
   FIELD( bool,                              forward,              false ) \
   FIELD( bool,                              fastForward,          false ) \
   FIELD( bool,                              allowRpInUse,         false ) \
   FIELD( Routing::Pim::SparseMode::Intf::JoinState, joinState,    {} ) \
   FIELD( double,                            lastJoinReceived,     0 ) /* s */ \
   FIELD( Routing::Pim::SparseMode::Intf::RptState, rptState,      {} ) \
   FIELD( double,                            lastRptPruneReceived, 0 ) /* s */ \
   FIELD( Routing::Pim::SparseMode::AssertInfo, assertInfo,        {} ) \
   FIELD( uint8_t,                           lastAssertAction,     0 ) \
   FIELD( bool,                              localReceiverInclude, false ) \
   FIELD( bool,                              localReceiverExclude, false )

#define PIMSM_BRANE_ROUTE_COUNTER_TYPES( V ) \
   V( unresolved ) V( toBeDeleted ) V( switching ) \
   V( routeCounterTypes ) /* how many there are; never a key */

#define PIMSM_BRANE_ROUTE_COUNTER_KEY( FIELD ) \
   FIELD( Routing::Pim::SparseMode::Brane::RouteCounterType, routeCounterType, {} ) \
   FIELD( uint32_t,                          dummy,                0 ) /* always 0 */

#define PIMSM_BRANE_ROUTE_COUNTER( FIELD ) \
   FIELD( Routing::Pim::SparseMode::Brane::RouteCounterKey, key,   {} ) \
   FIELD( uint32_t,                          count,                0 )

#define PIMSM_BRANE_ROLES( V ) V( reader ) V( writer )
// clang-format on

// One route. The fields of a umh or umhFrr that the model's route lacks keep their
// defaults.
struct PIMSM_API Route {
   PIMSM_BRANE_ROUTE( MOX_RECORD_FIELD )

   Route() = default;
   explicit Route( const RouteKey& routeKey ) : key( routeKey ) {}
   bool operator==( const Route& ) const = default;
   bool operator!() const { return *this == Route(); }
   Mox::String braneString() const;
};
MOX_RECORD_TEXT( Route, "Routing::Pim::SparseMode::Brane::Route",
                 PIMSM_BRANE_ROUTE )
MOX_STREAM_TEXT( Route )

// One downstream interface of a route.
struct PIMSM_API Intf {
   PIMSM_BRANE_INTF( MOX_RECORD_FIELD )

   Intf() = default;
   explicit Intf( const RouteIntfKey& intfKey ) : key( intfKey ) {}
   bool operator==( const Intf& ) const = default;
   bool operator!() const { return *this == Intf(); }
   Mox::String braneString() const;
};
MOX_RECORD_TEXT( Intf, "Routing::Pim::SparseMode::Brane::Intf", PIMSM_BRANE_INTF )
MOX_STREAM_TEXT( Intf )

// The kinds by which routes are counted.
MOX_ENUM( RouteCounterType, PIMSM_BRANE_ROUTE_COUNTER_TYPES )
MOX_ENUM_TEXT( RouteCounterType, PIMSM_BRANE_ROUTE_COUNTER_TYPES )

struct RouteCounterKey {
   PIMSM_BRANE_ROUTE_COUNTER_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const RouteCounterKey& ) const = default;
   size_t hash() const { return routeCounterType; }
};
MOX_RECORD_TEXT( RouteCounterKey,
                 "Routing::Pim::SparseMode::Brane::RouteCounterKey",
                 PIMSM_BRANE_ROUTE_COUNTER_KEY )
MOX_STREAM_TEXT( RouteCounterKey )

// The number of routes of one kind. The library only reads these records.
struct PIMSM_API RouteCounter {
   PIMSM_BRANE_ROUTE_COUNTER( MOX_RECORD_FIELD )
   bool operator==( const RouteCounter& ) const = default;
   Mox::String braneString() const;
};
MOX_RECORD_TEXT( RouteCounter, "Routing::Pim::SparseMode::Brane::RouteCounter",
                 PIMSM_BRANE_ROUTE_COUNTER )
MOX_STREAM_TEXT( RouteCounter )

// The side of the tables that a component takes. Mounting and reconciling take the
// table facility's own role; the two do not convert.
MOX_ENUM( Role, PIMSM_BRANE_ROLES )
MOX_ENUM_TEXT( Role, PIMSM_BRANE_ROLES )

}

template <>
struct std::hash<Routing::Pim::SparseMode::Brane::RouteCounterKey> {
   size_t operator()(
      const Routing::Pim::SparseMode::Brane::RouteCounterKey& key ) const {
      return key.hash();
   }
};
