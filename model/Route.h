// One multicast route of a VRF, (*,G) or (S,G): flags, timers, counters, the
// downstream interfaces and the upstream records.
//
// Created by Status::routeIs and owned by Status::route; a removed route lives
// while someone holds it. When the last reference goes it removes umh, umhFrr and
// its interfaces, notifying each. Event-loop thread only. Times are seconds on the
// framework's clock.
//
// The wildCard flag alone says whether a route is a (*,G) one. Absent neighbours
// read as defaults: no status or (*,G) route as null, no upstream record as the
// default Rpf and the empty interface. The protocol macros are computed on every
// call and change nothing; Intf.h says what holds for all macros.
#pragma once

#include <limits>

#include "model/ChangeFlags.h"
#include "model/Fwd.h"
#include "model/Intf.h"
#include "model/UpstreamInfo.h"
#include "platform/pim/PimKernelStats.h"
#include "platform/pim/RouteKey.h"

namespace Routing::Pim::SparseMode {

using RouteIntfMap = Mox::HashedMap<Vantu::IntfId, Intf>;

// clang-format off
// The route's flags: each has a bit of the word, in this order, and a view. EACH(
// X, name, Name, letter, initial, meaning ). routeFlagsString() has its own order
// of the letters.
#define PIMSM_EACH_ROUTE_FLAG( EACH, X ) \
   EACH( X, rpTree,            RpTree,            'R', false, "on the RP tree" ) \
   EACH( X, wildCard,          WildCard,          'W', false, "a (*,G) route" ) \
   EACH( X, spTree,            SpTree,            'S', false, "SPT bit: on the shortest-path tree" ) \
   EACH( X, switching,         Switching,         'J', false, "changing over to the source tree" ) \
   EACH( X, iifSwitching,      IifSwitching,      'T', false, "changing the incoming interface" ) \
   EACH( X, mbr,               Mbr,               'B', false, "learned from a multicast border router" ) \
   EACH( X, katExpired,        KatExpired,        ' ', true,  "the keepalive timer does not run" ) \
   EACH( X, markedForDeletion, MarkedForDeletion, 'Z', false, "about to go" ) \
   EACH( X, mayAdvertise,      MayAdvertise,      'N', false, "may be advertised to other RPs" ) \
   EACH( X, msdpDiscovered,    MsdpDiscovered,    'M', false, "discovered by MSDP" ) \
   EACH( X, anycastDiscovered, AnycastDiscovered, 'A', false, "discovered by anycast-RP" ) \
   EACH( X, drDiscovered,      DrDiscovered,      'C', false, "this router is the source's DR" ) \
   EACH( X, oifRegister,       OifRegister,       ' ', false, "goes out in registers" ) \
   EACH( X, programmable,      Programmable,      'P', false, "may be programmed" ) \
   EACH( X, hwRecovered,       HwRecovered,       'X', false, "found in hardware after a restart" )

#define PIMSM_ROUTE_FLAG( FLAG, name, Name, letter, initial, meaning ) FLAG( name, letter )
#define PIMSM_ROUTE_FLAGS( FLAG ) PIMSM_EACH_ROUTE_FLAG( PIMSM_ROUTE_FLAG, FLAG )
#define PIMSM_ROUTE_FLAG_VIEW( A, name, Name, letter, initial, meaning ) \
   A( Reacting, name, Name, bool, initial, meaning )
#define PIMSM_ROUTE_FLAG_HANDLER( X, name, Name, letter, initial, meaning ) \
   void handle##Name() { viewChanged( RouteFlags::name##Bit, name() ); }

#define PIMSM_EXPIRED_FLAGS( FLAG ) \
   FLAG( allExpired, 'A' ) FLAG( registerExpired, 'R' ) FLAG( advertiseExpired, 'V' )

#define PIMSM_IIF_SWITCH_STATES( V ) \
   V( notSwitching ) V( switchIifUpdated ) V( wrongVifRecd ) V( intervalElapsed ) V( hwSwitchComplete )

#define PIMSM_ROUTE_ATTRIBUTES( A ) \
   A( Fixed,    key,                 Key,                 RouteKey,        ,      "source and group" ) \
   A( Reacting, routeFlags,          RouteFlags,          Route::RouteFlags, RouteFlags( 0x40 ), "flag word; starts with katExpired" ) \
   PIMSM_EACH_ROUTE_FLAG( PIMSM_ROUTE_FLAG_VIEW, A ) \
   A( Value,    creationTime,        CreationTime,        double,          0.0,   "s; set by the route's writer" ) \
   A( Value,    registerOifEvaluated, RegisterOifEvaluated, bool,          false, "the register interface was evaluated" ) \
   A( Child,    umh,                 Umh,                 UpstreamInfo,    ,      "upstream state; made at construction" ) \
   A( Child,    umhFrr,              UmhFrr,              UpstreamInfo,    ,      "of the fast-reroute path; starts absent" ) \
   A( Counter,  wcRouteChanged,      WcRouteChanged,      uint8_t,         0,     "(*,G) route changed; wraps" ) \
   A( Counter,  routeChanged,        RouteChanged,        uint8_t,         0,     "route changed; wraps" ) \
   A( Value,    upJoinState,         UpJoinState,         SparseMode::UpJoinState, upNotJoined, "upstream join state" ) \
   A( Value,    iifSwitchState,      IifSwitchState,      Route::IifSwitchState, notSwitching, "progress of an interface switch" ) \
   A( Value,    iifSwitchPending,    IifSwitchPending,    bool,            false, "a switch is pending" ) \
   A( Counter,  beginIifSwitch,      BeginIifSwitch,      uint32_t,        0,     "switches begun; wraps" ) \
   A( Value,    nsfRpfResolved,      NsfRpfResolved,      bool,            true,  "RPF resolved; deliberately starts true" ) \
   A( Value,    changeFlags,         ChangeFlags,         SparseMode::ChangeFlags, {}, "since the last review" ) \
   A( ReactingMap, routeIntf,           RouteIntf,           RouteIntfMap,    ,      "downstream interfaces" ) \
   A( Value,    kernelStats,         KernelStats,         PimKernelStats,  {},    "forwarding counters" ) \
   A( Counter,  mfibChangeCount,     MfibChangeCount,     uint8_t,         0,     "forwarding entry changed; wraps" ) \
   A( Value,    firstInactivityTime, FirstInactivityTime, double,          std::numeric_limits<double>::infinity(), "s; infinity = never" ) \
   A( Value,    expiredFlags,        ExpiredFlags,        Route::ExpiredFlags, {}, "lifetimes that have expired" ) \
   A( Value,    initialized,         Initialized,         bool,            false, "completed by its writer" ) \
   A( Fixed,    pimsmStatus,         PimsmStatus,         Status*,         ,      "owning VRF; null once it has gone" ) \
   A( Via,      rpf,                 Rpf,                 Routing::Pim::Rpf, umh, "umh's" ) \
   A( Via,      prevRpf,             PrevRpf,             Routing::Pim::Rpf, umh, "umh's" ) \
   A( Via,      mbrIif,              MbrIif,              Vantu::IntfId,   umh,   "umh's" ) \
   A( Via,      rpfAttached,         RpfAttached,         bool,            umh,   "umh's" ) \
   A( Via,      upRptState,          UpRptState,          SparseMode::UpRptState, umh, "umh's" ) \
   A( Via,      prevRptState,        PrevRptState,        SparseMode::UpRptState, umh, "umh's" ) \
   A( Computed, rpfFrr,              RpfFrr,              Routing::Pim::Rpf, ,    "umhFrr's rpf" ) \
   A( Computed, prevRpfFrr,          PrevRpfFrr,          Routing::Pim::Rpf, ,    "umhFrr's prevRpf" ) \
   A( Computed, rpfFrrAttached,      RpfFrrAttached,      bool,            ,      "umhFrr's rpfAttached" ) \
   A( Computed, iif,                 Iif,                 Vantu::IntfId,   ,      "umh's iif; empty without umh" ) \
   A( Computed, iifFrr,              IifFrr,              Vantu::IntfId,   ,      "umhFrr's iif; empty without umhFrr" ) \
   A( Computed, directlyConnected,   DirectlyConnected,   bool,            ,      "umh's" ) \
   A( Computed, discoveredSg,        DiscoveredSg,        bool,            ,      "discovered in any way" ) \
   A( Computed, hasSgState,          HasSgState,          bool,            ,      "interfaces, or pruned upstream" ) \
   A( Computed, switchIifUpdateComplete, SwitchIifUpdateComplete, bool,    ,      "iifSwitchState is switchIifUpdated" ) \
   A( Computed, wc,                  Wc,                  Route,           ,      "the group's (*,G) route" ) \
   A( Computed, rpfWc,               RpfWc,               Routing::Pim::Rpf, ,    "RPF of the (*,G) route" ) \
   A( Computed, nullImmediateOlistWcRp, NullImmediateOlistWcRp, bool,      ,      "immediate_olist(*,*,RP) is empty" ) \
   A( Computed, nullImmediateOlistWc, NullImmediateOlistWc, bool,          ,      "immediate_olist(*,G) is empty" ) \
   A( Computed, nullImmediateOlistSg, NullImmediateOlistSg, bool,          ,      "immediate_olist(S,G) is empty" ) \
   A( Computed, nullInheritedOlistSg, NullInheritedOlistSg, bool,          ,      "inherited_olist(S,G) is empty" ) \
   A( Computed, nullInheritedOlistSgRpt, NullInheritedOlistSgRpt, bool,    ,      "inherited_olist(S,G,rpt) is empty" ) \
   A( Computed, joinDesiredWcRp,     JoinDesiredWcRp,     bool,            ,      "JoinDesired(*,*,RP)" ) \
   A( Computed, joinDesiredWc,       JoinDesiredWc,       bool,            ,      "JoinDesired(*,G)" ) \
   A( Computed, rptJoinDesiredWc,    RptJoinDesiredWc,    bool,            ,      "RPTJoinDesired(G)" ) \
   A( Computed, joinDesiredSg,       JoinDesiredSg,       bool,            ,      "JoinDesired(S,G)" ) \
   A( Computed, pruneDesiredSgRpt,   PruneDesiredSgRpt,   bool,            ,      "PruneDesired(S,G,rpt)" ) \
   A( Computed, comesBySharedTree,   ComesBySharedTree,   bool,            ,      "the traffic comes in along the (*,G) route's path" ) \
   A( Computed, incomingIntf,        IncomingIntf,        Vantu::IntfId,   ,      "where the traffic comes in; empty: nowhere known" ) \
   A( Computed, incomingRpf,         IncomingRpf,         Routing::Pim::Rpf, ,    "the path that it takes" ) \
   A( Computed, incomingAttached,    IncomingAttached,    bool,            ,      "that path's end is on the link" )
// clang-format on

class PIMSM_API Route : public Mox::Entity {
 public:
   MOX_FLAGS( RouteFlags, "Routing::Pim::SparseMode::Route::", PIMSM_ROUTE_FLAGS )
   MOX_FLAGS( ExpiredFlags,
              "Routing::Pim::SparseMode::Route::", PIMSM_EXPIRED_FLAGS )
   MOX_ENUM( IifSwitchState, PIMSM_IIF_SWITCH_STATES )

   // Both throw RangeError on an unknown number or name.
   static IifSwitchState IifSwitchStateInstance( uint32_t number );
   static IifSwitchState IifSwitchStateInstance( const Mox::String& name );

   // A change of the word notifies each changed view in bit order, then the word; a
   // change of a view notifies the word first, then the view.
   MOX_ENTITY( Route, PIMSM_ROUTE_ATTRIBUTES )

   // Status::routeIs makes a route of the VRF. A Route made by this constructor
   // belongs to no collection, and loses its status when the status goes. `status`
   // may be null.
   Route( const RouteKey& key, Status* status );

   const RouteKey& mapKey() const { return key_; }

   Routing::Pim::Rpf rpfFrr() const;
   Routing::Pim::Rpf prevRpfFrr() const;
   bool rpfFrrAttached() const;
   Vantu::IntfId iif() const;
   Vantu::IntfId iifFrr() const;
   bool directlyConnected() const;

   // Any of msdpDiscovered, anycastDiscovered, drDiscovered and, deliberately,
   // hwRecovered.
   bool discoveredSg() const;
   bool hasSgState() const;
   bool switchIifUpdateComplete() const {
      return iifSwitchState() == switchIifUpdated;
   }

   // The (*,G) route of the same group in the same Status, looked up each time. A
   // (*,G) route returns itself. Null without such a route or a Status.
   Route* wc();
   const Route* wc() const;

   // The RPF of the (*,G) route; a wildCard route's own.
   Routing::Pim::Rpf rpfWc() const;

   // The interface's record under the given parent, created when absent. Throws
   // NameInUseError, and changes nothing, when it exists under another parent.
   // routeIntfIs( intfId ) returns an existing record whatever its parent, and
   // otherwise creates it with this route as parent.
   Mox::Ptr<Intf> routeIntfIs( Vantu::IntfId intfId, Route* parentRoute );

   // The stored change flags, to change bits in place. Call
   // changeFlagsDoEmbeddedWriteConstraints() afterwards, which always notifies.
   // changeFlags() is a copy.
   SparseMode::ChangeFlags& changeFlagsInPlace() { return changeFlags_; }
   void changeFlagsDoEmbeddedWriteConstraints();

   // The reactions: the views follow the word, and the word follows each view
   // (handleRpTree() and so on). They do nothing where both agree.
   void handleRouteFlags();
   PIMSM_EACH_ROUTE_FLAG( PIMSM_ROUTE_FLAG_HANDLER, )
   // Makes umh and binds it. Runs for every new route, whatever `initialized` holds.
   void handleInitialized();
   void initFirstInactivityTime();

   // Would `rpf` as fast-reroute path only repeat the main path? True on the main
   // incoming interface, or when equal to umh's RPF; false for the absent RPF.
   bool isDuplicateRpf( const Routing::Pim::Rpf& rpf ) const;

   // Updates umhFrr; a duplicate clears it instead. Nothing without umhFrr.
   void doUpdateRpfFrr( const Routing::Pim::Rpf& rpf, bool attached );

   // ---- empty outgoing lists (RFC 7761, 4.1.6)

   bool nullImmediateOlistWcRp() const;
   bool nullImmediateOlistWc() const;
   bool nullImmediateOlistSg() const;
   // On an (S,G) route these consider its (*,G) route too: an interface that only
   // the (*,G) route has a record of is judged by that record, any other by this
   // route's.
   bool nullInheritedOlistSg() const;
   bool nullInheritedOlistSgRpt() const;

   // ---- joins and prunes wanted upstream (RFC 7761, 4.5.4 to 4.5.7)

   // For (*,G) routes.
   bool joinDesiredWcRp() const;
   bool joinDesiredWc() const;
   bool rptJoinDesiredWc() const;
   // For (S,G) routes; pruneDesiredSgRpt is false without a (*,G) route.
   bool joinDesiredSg() const;
   bool pruneDesiredSgRpt() const;
   // Is an (S,G) join wanted on the fast-reroute path, for these interfaces?
   bool joinDesiredSgFastFailover( const IntfCollection& fastFailoverIntfs ) const;

   // ---- the incoming interface (RFC 7761, 4.2)

   // Does the traffic come along the (*,G) route's path? For an (S,G) route it does
   // while the route is not on the source tree, unless the source is on a link of
   // this router.
   bool comesBySharedTree() const;
   // The incoming interface; empty, and not "Null0" as in iif(), when it is unknown.
   // A border router's interface takes precedence over either path.
   Vantu::IntfId incomingIntf() const;
   // The upstream path of the tree by which the traffic comes, and whether its end,
   // the source or the RP, is directly connected. While the interface switches, and
   // behind a border router, the traffic comes in elsewhere: see incomingIntf().
   Routing::Pim::Rpf incomingRpf() const;
   bool incomingAttached() const;

   // The letters of the set flags; the source gives their order. "E" stands for a
   // route on no tree. While switching, "H" means that data comes and has an
   // outgoing interface, "D" that the source tree has interfaces of its own.
   Mox::String routeFlagsString() const;
   // "ALL,", "Register,", "Advertise," for the set flags, commas included.
   Mox::String expiredFlagsString() const;

 protected:
   ~Route() override;
   void handleZeroReferences() override;

 private:
   friend class Status;
   friend class Intf;
   friend class UpstreamInfo;

   // Selects the constructor for a collection's member, which adds nothing else.
   struct ForCollection {};
   Route( const RouteKey& key, Status* status, ForCollection );
   void viewChanged( RouteFlags::Bit bit, bool on );

   Mox::Ptr<UpstreamInfo> newUmh() { return new UpstreamInfo; }
   Mox::Ptr<UpstreamInfo> newUmhFrr() { return new UpstreamInfo; }
   Mox::Ptr<Intf> newRouteIntf( Vantu::IntfId intfId ) {
      return new Intf( intfId, this, Intf::ForCollection() );
   }
   void handleRouteIntfDel( Intf& removed );
   void unbindUpstreams();

   // The interfaces that point back at this route from outside its collections.
   Mox::Strays<Intf> strayIntfs_;
   Mox::Strays<UpstreamInfo> upstreams_;
   bool stray_ = false;  // among its Status's strays
};

MOX_ENUM_TEXT( Route::IifSwitchState, PIMSM_IIF_SWITCH_STATES )

// "(S, G), Flags: <letters>"; "null" for a null pointer.
PIMSM_API std::ostream& operator<<( std::ostream& stream, const Route* route );

// Makes a Route with its notifications on.
PIMSM_API Mox::Ptr<Route> routeFactory( const RouteKey& key, Status* status );

}
