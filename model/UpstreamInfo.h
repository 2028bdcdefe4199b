// The upstream (RPF) state of a route: the incoming interface and neighbour of its
// traffic, and the upstream (S,G,rpt) state.
//
// Owned by a Route, as its umh or umhFrr. Binding it sets `route`, which turns null
// when that route goes. Event-loop thread only.
#pragma once

#include "model/Fwd.h"
#include "platform/base/Enum.h"
#include "platform/entity/Attribute.h"
#include "platform/pim/Rpf.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_UP_JOIN_STATES( V ) V( upNotJoined ) V( upJoined )
#define PIMSM_UP_RPT_STATES( V ) V( upRptNotPruned ) V( upRptNotJoined ) V( upRptPruned )
// clang-format on

// Upstream (*,G) or (S,G) state (RFC 7761, 4.5.4 and 4.5.5).
MOX_ENUM( UpJoinState, PIMSM_UP_JOIN_STATES )
MOX_ENUM_TEXT( UpJoinState, PIMSM_UP_JOIN_STATES )
// Upstream (S,G,rpt) state (RFC 7761, 4.5.7).
MOX_ENUM( UpRptState, PIMSM_UP_RPT_STATES )
MOX_ENUM_TEXT( UpRptState, PIMSM_UP_RPT_STATES )

// clang-format off
#define PIMSM_UPSTREAM_ATTRIBUTES( A ) \
   A( Value,    rpf,          Rpf,          Routing::Pim::Rpf, {},             "toward the source or RP" ) \
   A( Reacting, route,        Route,        Route*,            nullptr,        "whose record this is; null: none" ) \
   A( Value,    frr,          Frr,          bool,              false,          "describes the fast-reroute path" ) \
   A( Value,    mbrIif,       MbrIif,       Vantu::IntfId,     {},             "incoming interface by a border router" ) \
   A( Value,    prevRpf,      PrevRpf,      Routing::Pim::Rpf, {},             "before the last change" ) \
   A( Value,    upRptState,   UpRptState,   SparseMode::UpRptState, upRptNotJoined, "upstream (S,G,rpt) state" ) \
   A( Value,    prevRptState, PrevRptState, SparseMode::UpRptState, upRptNotJoined, "before the last change" ) \
   A( Value,    rpfAttached,  RpfAttached,  bool,              false,          "the RPF neighbour is directly attached" ) \
   A( Value,    rp,           Rp,           Vantu::IpGenAddr,  {},             "rendezvous point of the group" ) \
   A( Computed, iif,          Iif,          Vantu::IntfId,     ,               "incoming interface" ) \
   A( Computed, directlyConnected, DirectlyConnected, bool,    ,               "the source or RP is on the link" )
// clang-format on

class PIMSM_API UpstreamInfo : public Mox::Entity {
 public:
   MOX_ENTITY( UpstreamInfo, PIMSM_UPSTREAM_ATTRIBUTES )

   // The incoming interface, "Null0" where there is none.
   Vantu::IntfId iif() const;

   // True when the owning route has its mbr flag; else rpfAttached.
   bool directlyConnected() const;

   // Takes a new RPF and keeps the former as prevRpf; an equal one changes nothing.
   // Observers of prevRpf run before those of rpf.
   void doUpdateRpf( const Routing::Pim::Rpf& rpf );

   // Takes a new upstream (S,G,rpt) state. Deliberately, prevRptState takes the
   // present state even when the new one equals it.
   void doUpdateRptState( SparseMode::UpRptState state );

 protected:
   ~UpstreamInfo() override;

 private:
   friend class SparseMode::Route;

   void handleRoute();
   // The two steps of routeIs( nullptr ), for a route that is going.
   void forgetRoute();
   void announceRoute();

   // The route that clears `route` when it goes.
   SparseMode::Route* boundTo_ = nullptr;
};

// Makes a record bound to no route.
PIMSM_API Mox::Ptr<UpstreamInfo> upstreamInfoFactory();

}
