// One downstream interface of one route: the state of the join, prune and assert
// machines, the local members there, and the protocol macros computed from it.
//
// Created by Route::routeIntfIs and owned by Route::routeIntf; a removed record
// lives while someone holds it. Event-loop thread only. Times are seconds on the
// framework's clock; 0 = never.
//
// Macros are computed on every call and change nothing. A neighbour that is missing
// (the route, its (*,G) route, the sibling record there, the PIM interface) reads
// as false, as the empty interface, or as the unspecified address. Macros that end
// in Wc are for records of (*,G) routes, those in Sg and SgRpt for records of (S,G)
// routes. Where a macro departs from RFC 7761, its rule in detail/ says why;
// Derivation.h explains each answer.
#pragma once

#include "model/AssertMetric.h"
#include "model/ChangeFlags.h"
#include "model/Fwd.h"
#include "platform/entity/Attribute.h"
#include "platform/net/IntfId.h"
#include "platform/pim/PimStatus.h"

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
   A( Value,   localReceiverExclude, LocalReceiverExclude, bool,          false, "RFC 7761, 4.1.6" ) \
   A( Computed, assertWinner,        AssertWinner,         Vantu::IpGenAddr, ,   "unspecified: none" ) \
   A( Computed, myIp,                MyIp,                 Vantu::IpGenAddr, ,   "of the PIM interface" ) \
   A( Computed, iAmDr,               IAmDr,                bool,          ,      "designated router here" ) \
   A( Computed, joinsWc,             JoinsWc,              bool,          ,      "joins(*,G)" ) \
   A( Computed, joinsSg,             JoinsSg,              bool,          ,      "joins(S,G)" ) \
   A( Computed, joinsWcRp,           JoinsWcRp,            bool,          ,      "joins(*,*,RP)" ) \
   A( Computed, prunesSgRpt,         PrunesSgRpt,          bool,          ,      "prunes(S,G,rpt)" ) \
   A( Computed, includeWc,           IncludeWc,            bool,          ,      "pim_include(*,G)" ) \
   A( Computed, includeSg,           IncludeSg,            bool,          ,      "pim_include(S,G)" ) \
   A( Computed, excludeSg,           ExcludeSg,            bool,          ,      "pim_exclude(S,G)" ) \
   A( Computed, includeSgFastFailover, IncludeSgFastFailover, bool,       ,      "member on the fast-failover path" ) \
   A( Computed, immediateOlistWcRp,  ImmediateOlistWcRp,   bool,          ,      "immediate_olist(*,*,RP)" ) \
   A( Computed, immediateOlistWc,    ImmediateOlistWc,     bool,          ,      "immediate_olist(*,G)" ) \
   A( Computed, immediateOlistSg,    ImmediateOlistSg,     bool,          ,      "immediate_olist(S,G)" ) \
   A( Computed, inheritedOlistSgRpt, InheritedOlistSgRpt,  bool,          ,      "inherited_olist(S,G,rpt)" ) \
   A( Computed, inheritedOlistSg,    InheritedOlistSg,     bool,          ,      "inherited_olist(S,G)" ) \
   A( Computed, inOlist,             InOlist,              bool,          ,      "in the list that the route's traffic follows" ) \
   A( Computed, forwardDesired,      ForwardDesired,       bool,          ,      "what forward should be" ) \
   A( Computed, fastForwardDesired,  FastForwardDesired,   bool,          ,      "what fastForward should be" ) \
   A( Computed, couldAssertWc,       CouldAssertWc,        bool,          ,      "CouldAssert(*,G,I)" ) \
   A( Computed, assertTrackingDesiredWc, AssertTrackingDesiredWc, bool,   ,      "AssertTrackingDesired(*,G,I)" ) \
   A( Computed, lostAssertWc,        LostAssertWc,         bool,          ,      "lost_assert(*,G,I)" ) \
   A( Computed, lostAssertSg,        LostAssertSg,         bool,          ,      "lost_assert(S,G,I)" ) \
   A( Computed, lostAssertSgRpt,     LostAssertSgRpt,      bool,          ,      "lost_assert(S,G,rpt,I)" ) \
   A( Computed, sptAssertMetric,     SptAssertMetric,      AssertMetric,  ,      "spt_assert_metric(S,I)" ) \
   A( Computed, rptAssertMetric,     RptAssertMetric,      AssertMetric,  ,      "rpt_assert_metric(G,I)" ) \
   A( Computed, myAssertMetricWc,    MyAssertMetricWc,     AssertMetric,  ,      "as the (*,G) machine sees it" ) \
   A( Alone,   couldAssertSg,        CouldAssertSg,        bool,          ,      "CouldAssert(S,G,I); fatal on a (*,G) record" ) \
   A( Alone,   assertTrackingDesiredSg, AssertTrackingDesiredSg, bool,    ,      "AssertTrackingDesired(S,G,I); likewise" ) \
   A( Alone,   myAssertMetricSg,     MyAssertMetricSg,     AssertMetric,  ,      "as the (S,G) machine sees it; likewise" ) \
   A( Computed, wcIntf,              WcIntf,               Intf,          ,      "record of the (*,G) route" ) \
   A( Computed, pimIntf,             PimIntf,              Routing::Pim::Intf, , "of the VRF; null: unknown" )
// clang-format on

class PIMSM_API Intf : public Mox::Entity {
 public:
   // Downstream (*,G) or (S,G) state (RFC 7761, 4.5.1 and 4.5.2).
   MOX_ENUM( JoinState, PIMSM_JOIN_STATES )
   // Downstream (S,G,rpt) state (RFC 7761, 4.5.3).
   MOX_ENUM( RptState, PIMSM_RPT_STATES )

   // Both throw RangeError on an unknown number or name.
   static JoinState JoinStateInstance( uint32_t number );
   static JoinState JoinStateInstance( const Mox::String& name );
   static RptState RptStateInstance( uint32_t number );
   static RptState RptStateInstance( const Mox::String& name );

   MOX_ENTITY( Intf, PIMSM_INTF_ATTRIBUTES )

   // Route::routeIntfIs makes an interface of the route. An Intf made by this
   // constructor belongs to no collection, and loses its parent when the parent
   // goes. `parentRoute` may be null.
   Intf( Vantu::IntfId intfId, Route* parentRoute );

   const Vantu::IntfId& mapKey() const { return intfId_; }

   // The stored change flags, to change bits in place. Call
   // changeFlagsDoEmbeddedWriteConstraints() afterwards, which always notifies.
   // changeFlags() is a copy.
   IntfChangeFlags& changeFlagsInPlace() { return changeFlags_; }
   void changeFlagsDoEmbeddedWriteConstraints();

   // ---- neighbours; null when missing

   // The PIM interface of the VRF: address and DR status.
   const Routing::Pim::Intf* pimIntf() const;
   // The record of the same interface in the route's (*,G) route. A (*,G) record
   // returns itself.
   const Intf* wcIntf() const;

   // ---- state

   // The winner's address; unspecified while none is known.
   const Vantu::IpGenAddr& assertWinner() const {
      return assertInfo_.assertWinnerMetric.address;
   }
   Vantu::IpGenAddr myIp() const;
   // Deliberately true without a PIM interface: it counts as DR, so that its
   // members are served.
   bool iAmDr() const;
   // Joined or prune-pending in the (*,G) or (S,G) machine of the record's route.
   bool joinsWc() const;
   bool joinsSg() const;
   // Always false: (*,*,RP) state is not kept.
   bool joinsWcRp() const;
   bool prunesSgRpt() const;

   // ---- membership and outgoing lists (RFC 7761, 4.1.6)

   bool includeWc() const;
   bool includeSg() const;
   bool excludeSg() const;
   // Deliberately ignores DR and assert.
   bool includeSgFastFailover() const;
   bool immediateOlistWcRp() const;
   bool immediateOlistWc() const;
   bool immediateOlistSg() const;
   bool inheritedOlistSgRpt() const;
   bool inheritedOlistSg() const;

   // ---- the forwarding that follows (RFC 7761, 4.2)

   // Is the interface in the list that the route's traffic follows now? That is
   // immediate_olist(*,G) of a (*,G) route, inherited_olist(S,G) of an (S,G) route
   // on the source tree, and inherited_olist(S,G,rpt) otherwise.
   bool inOlist() const;
   // The right value of `forward`: inOlist(), except for the traffic's own incoming
   // interface, Route::incomingIntf().
   bool forwardDesired() const;
   // The right value of `fastForward`: as above, by the fast-reroute path. False
   // without one.
   bool fastForwardDesired() const;

   // ---- asserts (RFC 7761, 4.6)

   bool couldAssertWc() const;
   bool assertTrackingDesiredWc() const;
   // REQUIRES: a record of an (S,G) route; a wildCard one is a fatal assertion. The
   // same holds for the macros that use couldAssertSg: myAssertMetricSg,
   // isAcceptableAssertSg and isInferiorAssertSg.
   bool couldAssertSg() const;
   bool assertTrackingDesiredSg() const;

   bool lostAssertWc() const;
   bool lostAssertSg() const;
   bool lostAssertSgRpt() const;

   // Own metrics (4.6.3); infinite where this router cannot assert.
   AssertMetric sptAssertMetric() const;
   AssertMetric rptAssertMetric() const;
   AssertMetric myAssertMetricWc() const;
   AssertMetric myAssertMetricSg() const;

   // A received metric is preferred when it beats the winner's, acceptable when it
   // strictly beats the own, and inferior when the own beats it. The infinite
   // metric, an assert cancel, is neither preferred nor acceptable. No metric is
   // inferior to an infinite own one.
   bool isPreferredAssertWc( const AssertMetric& received ) const;
   bool isPreferredAssertSg( const AssertMetric& received ) const;
   bool isAcceptableAssertWc( const AssertMetric& received ) const;
   bool isAcceptableAssertSg( const AssertMetric& received ) const;
   bool isInferiorAssertWc( const AssertMetric& received ) const;
   bool isInferiorAssertSg( const AssertMetric& received ) const;

 protected:
   ~Intf() override;

 private:
   friend class Route;

   // Selects the constructor for a collection's member, which adds nothing else.
   struct ForCollection {};
   Intf( Vantu::IntfId intfId, Route* parentRoute, ForCollection )
      : intfId_( intfId ), parentRoute_( parentRoute ) {}

   // Not in its parent's collection: the parent keeps it among its strays.
   bool stray_ = false;
};

// Makes an Intf with its notifications on.
PIMSM_API Mox::Ptr<Intf> intfFactory( Vantu::IntfId intfId, Route* parentRoute );

MOX_ENUM_TEXT( Intf::JoinState, PIMSM_JOIN_STATES )
MOX_ENUM_TEXT( Intf::RptState, PIMSM_RPT_STATES )

}
