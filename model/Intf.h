// One downstream interface of one route: what the join, prune and assert machines
// left behind, and the local members there.
//
// Created by Route::routeIntfIs and owned by Route::routeIntf; a removed record
// lives while someone holds it. Event-loop thread only. Times are seconds on the
// framework's clock; 0 = never.
#pragma once

#include "model/AssertMetric.h"
#include "model/ChangeFlags.h"
#include "model/Fwd.h"
#include "platform/entity/Attribute.h"
#include "platform/net/IntfId.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_JOIN_STATES( V ) V( noInfo ) V( prunePending ) V( joined )
#define PIMSM_RPT_STATES( V ) \
   V( rptNoInfo ) V( rptPruned ) V( rptPrunePending ) V( rptPruneTemp ) V( rptPrunePendingTemp )

#define PIMSM_INTF_ATTRIBUTES( A ) \
   A( Fixed,   intfId,               IntfId,               Vantu::IntfId, ,     "key" ) \
   A( Fixed,   parentRoute,          ParentRoute,          Route*,        ,     "owner; null once it has gone" ) \
   A( Value,   ifIndex,              IfIndex,              uint32_t,      0,    "the kernel's" ) \
   A( Value,   localMembership,      LocalMembership,      bool,          false, "local members, as set by the agent" ) \
   A( Value,   forward,              Forward,              bool,          false, "forwards the route's traffic" ) \
   A( Value,   fastForward,          FastForward,          bool,          false, "forwards on the fast-failover path" ) \
   A( Value,   initialized,          Initialized,          bool,          false, "filled by its writer" ) \
   A( Value,   toBeDeleted,          ToBeDeleted,          bool,          false, "the route is to drop it" ) \
   A( Value,   allowRpInUse,         AllowRpInUse,         bool,          false, "the agent's; exported" ) \
   A( Counter, wcIntfChanged,        WcIntfChanged,        uint8_t,       0,    "(*,G) sibling changed; wraps" ) \
   A( Counter, pimIntfChanged,       PimIntfChanged,       uint8_t,       0,    "PIM interface changed; wraps" ) \
   A( Value,   joinState,            JoinState,            SparseMode::Intf::JoinState, noInfo, "(*,G) or (S,G) join state" ) \
   A( Value,   rptState,             RptState,             SparseMode::Intf::RptState, rptNoInfo, "(S,G,rpt) prune state" ) \
   A( Value,   assertInfo,           AssertInfo,           SparseMode::AssertInfo, {}, "state and winner; starts infinite" ) \
   A( Value,   lastJoinReceived,     LastJoinReceived,     double,        0.0,  "s; 0 = never" ) \
   A( Value,   lastRptPruneReceived, LastRptPruneReceived, double,        0.0,  "s; 0 = never" ) \
   A( Value,   lastAssertAction,     LastAssertAction,     uint8_t,       0,    "the assert machine's code" ) \
   A( Counter, rxPreferredAssert,    RxPreferredAssert,    uint8_t,       0,    "received; wraps" ) \
   A( Counter, rxInferiorAssert,     RxInferiorAssert,     uint8_t,       0,    "received; wraps" ) \
   A( Value,   changeFlags,          ChangeFlags,          IntfChangeFlags, {}, "pending for the route's review" ) \
   A( Value,   localReceiverInclude, LocalReceiverInclude, bool,          false, "RFC 7761, 4.1.6" ) \
   A( Value,   localReceiverExclude, LocalReceiverExclude, bool,          false, "RFC 7761, 4.1.6" )
// clang-format on

class PIMSM_API Intf : public Mox::Entity {
 public:
   // Downstream (*,G) or (S,G) state (RFC 7761, 4.5.1 and 4.5.2).
   MOX_ENUM( JoinState, PIMSM_JOIN_STATES )
   // Downstream (S,G,rpt) state (RFC 7761, 4.5.3).
   MOX_ENUM( RptState, PIMSM_RPT_STATES )

   // Throw RangeError on an unknown number or name.
   static JoinState JoinStateInstance( uint32_t number );
   static JoinState JoinStateInstance( const Mox::String& name );
   static RptState RptStateInstance( uint32_t number );
   static RptState RptStateInstance( const Mox::String& name );

   MOX_ENTITY( Intf, PIMSM_INTF_ATTRIBUTES )

   // Use Route::routeIntfIs. `parentRoute` may be null.
   Intf( Vantu::IntfId intfId, Route* parentRoute );
   ~Intf() override;

   const Vantu::IntfId& mapKey() const { return intfId_; }

   // The stored change flags, to change bits in place; then call
   // changeFlagsDoEmbeddedWriteConstraints(), which notifies unconditionally.
   IntfChangeFlags& changeFlagsInPlace() { return changeFlags_; }
   void changeFlagsDoEmbeddedWriteConstraints();

 private:
   friend class Route;

   // Not in its parent's collection: the parent keeps it among its strays.
   bool stray_ = false;
};

MOX_ENUM_TEXT( Intf::JoinState, PIMSM_JOIN_STATES )
MOX_ENUM_TEXT( Intf::RptState, PIMSM_RPT_STATES )

}
