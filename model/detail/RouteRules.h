// The protocol macros of one route, as rules (see Rule.h): RFC 7761, 4.5.4 to 4.5.7,
// over the outgoing lists of 4.1.6.
#pragma once

#include "model/IntfCollection.h"
#include "model/detail/SgIntfRules.h"

namespace Routing::Pim::SparseMode::Detail {

inline const Vantu::IntfId& register0() {
   static const Vantu::IntfId intfId( "Register0" );
   return intfId;
}

inline const Routing::Pim::Rpf& absentRpf() {
   static const Routing::Pim::Rpf none;
   return none;
}

template <class Q>
class RouteRules {
 public:
   using Bool = typename Q::Bool;
   template <class T>
   using Read = typename Q::template Read<T>;

   RouteRules( const Q& q, const Route& route ) : q_( q ), route_( route ) {}

   const Route& subject() const { return route_; }

   // ---- outgoing lists (RFC 7761, 4.1.6)

   // immediate_olist(*,*,RP) of RFC 4601 is empty
   Bool nullImmediateOlistWcRp() const {
      RULE( Bool );
      for ( const Intf& intf : route_.routeIntf() )
         FALSE_IF( at( intf ).immediateOlistWcRp() );
      RESULT( true );
   }

   // immediate_olist(*,G) is empty
   Bool nullImmediateOlistWc() const {
      RULE( Bool );
      for ( const Intf& intf : route_.routeIntf() )
         FALSE_IF( at( intf ).immediateOlistWc() );
      RESULT( true );
   }

   // immediate_olist(S,G) is empty
   Bool nullImmediateOlistSg() const {
      RULE( Bool );
      for ( const Intf& intf : route_.routeIntf() )
         FALSE_IF( at( intf ).immediateOlistSg() );
      RESULT( true );
   }

   // inherited_olist(S,G) is empty
   Bool nullInheritedOlistSg() const {
      RULE( Bool );
      FALSE_IF( sharedTreeServesOthers() );
      const Route* shared = route_.wc();
      for ( const Intf& intf : route_.routeIntf() )
         FALSE_IF( at( intf, shared ).inheritedOlistSg() );
      RESULT( true );
   }

   // inherited_olist(S,G,rpt) is empty
   Bool nullInheritedOlistSgRpt() const {
      RULE( Bool );
      FALSE_IF( sharedTreeServesOthers() );
      const Route* shared = route_.wc();
      for ( const Intf& intf : route_.routeIntf() )
         FALSE_IF( at( intf, shared ).inheritedOlistSgRpt() );
      RESULT( true );
   }

   // ---- joins and prunes upstream

   // JoinDesired(*,*,RP) of RFC 4601
   Bool joinDesiredWcRp() const {
      RULE( Bool );
      RESULT( !nullImmediateOlistWcRp() );
   }

   // JoinDesired(*,G) (RFC 7761, 4.5.4). Deliberately false when the route's
   // upstream record was removed: there is no neighbour to join.
   Bool joinDesiredWc() const {
      RULE( Bool );
      FALSE_UNLESS( hasUmh() );
      TRUE_IF( !nullImmediateOlistWc() );
      FALSE_UNLESS( joinDesiredWcRp() );
      RESULT( rpfIntfHasWinner() );
   }

   // RPTJoinDesired(G) (RFC 7761, 4.5.7)
   Bool rptJoinDesiredWc() const {
      RULE( Bool );
      TRUE_IF( joinDesiredWc() );
      RESULT( joinDesiredWcRp() );
   }

   // JoinDesired(S,G) (RFC 7761, 4.5.5)
   Bool joinDesiredSg() const {
      RULE( Bool );
      TRUE_IF( !nullImmediateOlistSg() );
      FALSE_IF( katExpired() );
      RESULT( !nullInheritedOlistSg() );
   }

   // PruneDesired(S,G,rpt) (RFC 7761, 4.5.7)
   //
   // Deliberately false where the shared tree comes in through the register
   // interface: this router is the RP and has no neighbour to prune. And
   // deliberately, the two trees' neighbours do not count as different when the
   // shared tree's is the fast-reroute neighbour: pruning there would cut the
   // standby path.
   Bool pruneDesiredSgRpt() const {
      RULE( Bool );
      FALSE_UNLESS( hasWc() );
      FALSE_IF( rpfWcIsRegister0() );
      FALSE_UNLESS( rptJoinDesiredOfWc() );
      TRUE_IF( nullInheritedOlistSgRpt() );
      FALSE_UNLESS( spTree() );
      RESULT( !wcNeighborIsMain() && !wcNeighborIsFrr() );
   }

   // Is an (S,G) join wanted on the fast-reroute path?
   Bool joinDesiredSgFastFailover( const IntfCollection& fastFailoverIntfs ) const {
      RULE( Bool );
      FALSE_IF( fastFailoverIntfs.intf().empty() );
      const Route* shared = route_.wc();
      for ( const Intf& intf : route_.routeIntf() ) {
         if ( !fastFailoverIntfs.intfHas( intf.intfId() ) ) continue;
         TRUE_IF( at( intf, shared ).includeSgFastFailover() );
      }
      RESULT( false );
   }

   // ---- the incoming interface (RFC 7761, 4.2)

   // Does the traffic come along the shared tree? For an (S,G) route it does while
   // the route is not on the source tree, unless the source is on a link of this
   // router: its first packet there puts the route on the source tree (4.2.2), and
   // must not be lost.
   Bool comesBySharedTree() const {
      RULE( Bool );
      FALSE_IF( route_.wildCard() );
      FALSE_IF( spTree() );
      FALSE_IF( rpfAttached() );
      RESULT( hasWc() );
   }

   // Otherwise the route's own path. A border router's interface takes precedence.
   // While the shared tree's path changes, its former interface, as for the group.
   Vantu::IntfId incomingIntf() const {
      RULE( Vantu::IntfId );
      RESULT_IF( comesBySharedTree() && !mbr(), sharedIif() );
      RESULT( ownIif() );
   }

   // The path that the traffic takes.
   Routing::Pim::Rpf incomingRpf() const {
      RULE( Routing::Pim::Rpf );
      RESULT_IF( comesBySharedTree(), rpfWc() );
      RESULT( rpf() );
   }

   // Is that path's end, the RP or the source, on a link of this router?
   Bool incomingAttached() const {
      RULE( Bool );
      RESULT_IF( comesBySharedTree(), rpfAttachedOfWc() );
      RESULT( rpfAttached() );
   }

   // ---- the parts of the rules

   // The interface of the route's own upstream records; empty without them.
   Vantu::IntfId ownIif() const {
      return umh() != nullptr ? iifOf( *umh() ) : Vantu::IntfId();
   }
   Vantu::IntfId sharedIif() const {
      const Route* shared = wc();
      return shared != nullptr ? RouteRules( q_, *shared ).ownIif()
                               : Vantu::IntfId();
   }
   Vantu::IntfId iifFrr() const {
      return umhFrr() != nullptr ? iifOf( *umhFrr() ) : Vantu::IntfId();
   }

   // The incoming interface of an upstream record, by the rule of the route that it
   // is bound to. Empty for an unbound record.
   Vantu::IntfId iifOf( const UpstreamInfo& upstream ) const {
      if ( upstream.route() == nullptr ) return {};
      const RouteRules owner( q_, *upstream.route() );
      return upstream.frr() ? owner.frrIif( upstream ) : owner.iif( upstream );
   }

   Vantu::IntfId frrIif( const UpstreamInfo& upstream ) const {
      RULE( Vantu::IntfId );
      RESULT_IF( switching(), Vantu::IntfId() );
      RESULT( rpfOf( &upstream, "rpfFrr" ).intfId );
   }

// A step that traces its outcome when only the answer is wanted.
#define IIF_STEP( why, outcome )                                        \
   if constexpr ( Q::traces ) {                                         \
      const Vantu::IntfId iif_ = outcome;                               \
      MOX_TRACE( Mox::defaultTraceFacility, 7,                          \
                 "iif" << &route_ << ", " why ", returning " << iif_ ); \
      return iif_;                                                      \
   }
#define IIF_IF( condition, why, outcome )       \
   if constexpr ( Q::traces ) {                 \
      if ( condition ) IIF_STEP( why, outcome ) \
   } else {                                     \
      RESULT_IF( condition, outcome );          \
   }

   Vantu::IntfId iif( const UpstreamInfo& upstream ) const {
      RULE( Vantu::IntfId );
      IIF_IF( mbr(), "MBR", mbrIif( upstream ) )
      IIF_IF( switching() && hasWc(), "switching", rpfWc().intfId )
      IIF_IF( holdsFormerIif(), "iif switching",
              rpfIn( "prevRpf", upstream.prevRpf() ).intfId )
      IIF_STEP( "not switching", rpfIn( "rpf", upstream.rpf() ).intfId )
      else {
         RESULT( rpfIn( "rpf", upstream.rpf() ).intfId );
      }
   }
#undef IIF_IF
#undef IIF_STEP

   Bool switching() const {
      RULE( Bool );
      FACT( q_.input( route_, "switching", route_.switching() ) );
   }

   // While the interface switches, the former one's traffic is still accepted.
   Bool holdsFormerIif() const {
      RULE( Bool );
      const Route::IifSwitchState state =
         q_.input( route_, "iifSwitchState", route_.iifSwitchState() );
      FACT( q_.input( route_, "iifSwitching", route_.iifSwitching() ) &&
            ( state == Route::switchIifUpdated || state == Route::wrongVifRecd ) );
   }

   Bool mbr() const {
      RULE( Bool );
      FACT( q_.input( route_, "mbr", route_.mbr() ) );
   }

   Bool rpfAttached() const {
      RULE( Bool );
      FACT( umh() != nullptr &&
            q_.input( route_, "rpfAttached", umh()->rpfAttached() ) );
   }

   Bool rpfAttachedOfWc() const {
      const Route* shared = wc();
      return shared != nullptr ? RouteRules( q_, *shared ).rpfAttached()
                               : Bool( false );
   }

   // Does the (*,G) route serve an interface of which this route has no record? The
   // other interfaces are judged with this route's own state.
   Bool sharedTreeServesOthers() const {
      RULE( Bool );
      if ( const Route* shared = wc() ) {
         for ( const Intf& intf : shared->routeIntf() ) {
            if ( has( intf.intfId() ) ) continue;
            TRUE_IF( at( intf ).immediateOlistWc() );
         }
      }
      RESULT( false );
   }

   Bool hasWc() const {
      RULE( Bool );
      FACT( wc() != nullptr );
   }

   Bool rpfWcIsRegister0() const {
      RULE( Bool );
      FACT( rpfWc().intfId == register0() );
   }

   Bool hasUmh() const {
      RULE( Bool );
      FACT( umh() != nullptr );
   }

   // Is an assert winner known on the RPF interface?
   Bool rpfIntfHasWinner() const {
      RULE( Bool );
      const Intf* intf = route_.routeIntf( rpf().intfId );
      FACT( intf != nullptr && !at( *intf ).assertWinner().isUnspecified() );
   }

   Bool katExpired() const {
      RULE( Bool );
      FACT( q_.input( route_, "katExpired", route_.katExpired() ) );
   }

   Bool spTree() const {
      RULE( Bool );
      FACT( q_.input( route_, "spTree", route_.spTree() ) );
   }

   Bool rptJoinDesiredOfWc() const {
      const Route* shared = wc();
      return shared != nullptr ? RouteRules( q_, *shared ).rptJoinDesiredWc()
                               : Bool( false );
   }

   // Do the shared and the source tree come from the same neighbour?
   Bool wcNeighborIsMain() const {
      RULE( Bool );
      FACT( rpfWc().sameNeighbor( rpf() ) );
   }

   Bool wcNeighborIsFrr() const {
      RULE( Bool );
      FACT( umhFrr() != nullptr && rpfWc().sameNeighbor( rpfFrr() ) );
   }

   const Route* wc() const {
      return q_.neighbor( route_, "wc", route_.wc() );
   }

   Read<Routing::Pim::Rpf> rpf() const {
      return rpfOf( umh(), "rpf" );
   }

   Read<Routing::Pim::Rpf> rpfFrr() const {
      return rpfOf( umhFrr(), "rpfFrr" );
   }

 private:
   Vantu::IntfId mbrIif( const UpstreamInfo& upstream ) const {
      return q_.input( route_, "mbrIif", upstream.mbrIif() );
   }
   Read<Routing::Pim::Rpf> rpfIn( const char* field,
                                  const Routing::Pim::Rpf& stored ) const {
      return q_.input( route_, field, stored );
   }
   IntfRules<Q> at( const Intf& intf ) const {
      return { q_, intf };
   }
   // `shared` spares the look-up. A record may have been made under another route.
   SgIntfRules<Q> at( const Intf& intf, const Route* shared ) const {
      if ( intf.parentRoute() != &route_ ) return { q_, intf };
      return { q_, intf, shared };
   }
   bool has( Vantu::IntfId intfId ) const {
      return route_.routeIntf( intfId ) != nullptr;
   }
   const UpstreamInfo* umh() const {
      return q_.neighbor( route_, "umh", route_.umh() );
   }

   const UpstreamInfo* umhFrr() const {
      return q_.neighbor( route_, "umhFrr", route_.umhFrr() );
   }

   Read<Routing::Pim::Rpf> rpfOf( const UpstreamInfo* upstream,
                                  const char* field ) const {
      if ( upstream == nullptr ) return absentRpf();
      return q_.input( route_, field, upstream->rpf() );
   }

   // The RPF of the (*,G) route, or a (*,G) route's own; none without a (*,G)
   // route.
   Read<Routing::Pim::Rpf> rpfWc() const {
      if ( route_.wildCard() ) return rpf();
      const Route* shared = wc();
      if ( shared == nullptr ) return absentRpf();
      return RouteRules( q_, *shared ).rpf();
   }

   [[no_unique_address]] Q q_;
   const Route& route_;
};

// ---- questions about an interface of the route

template <class Q>
typename Q::template Read<Routing::Pim::Rpf> IntfRules<Q>::rpf() const {
   if ( route() == nullptr ) return absentRpf();
   return RouteRules<Q>( q_, *route() ).rpf();
}

template <class Q>
typename Q::Bool IntfRules<Q>::rptJoinDesiredWc() const {
   if ( route() == nullptr ) return false;
   return RouteRules<Q>( q_, *route() ).rptJoinDesiredWc();
}

template <class Q>
Vantu::IntfId SgIntfRules<Q>::rpfIntfOfWc() const {
   if ( wc() == nullptr ) return {};
   return RouteRules<Q>( q_, *wc() ).rpf().intfId;
}

template <class Q>
Routing::Pim::Rpf SgIntfRules<Q>::rpfFrr() const {
   if ( route() == nullptr ) return {};
   return RouteRules<Q>( q_, *route() ).rpfFrr();
}

template <class Q>
Vantu::IntfId SgIntfRules<Q>::incomingIntf() const {
   if ( route() == nullptr ) return {};
   return RouteRules<Q>( q_, *route() ).incomingIntf();
}

template <class Q>
Vantu::IntfId SgIntfRules<Q>::iifFrr() const {
   if ( route() == nullptr ) return {};
   return RouteRules<Q>( q_, *route() ).iifFrr();
}

template <class Q>
typename Q::Bool SgIntfRules<Q>::joinDesiredSg() const {
   if ( route() == nullptr ) return false;
   return RouteRules<Q>( q_, *route() ).joinDesiredSg();
}

template <class Q>
typename Q::Bool SgIntfRules<Q>::joinDesiredOfWc() const {
   if ( wc() == nullptr ) return false;
   return RouteRules<Q>( q_, *wc() ).joinDesiredWc();
}

}
