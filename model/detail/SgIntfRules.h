// The protocol macros of an (S,G) record that also consider the shared tree, as
// rules (see Rule.h).
#pragma once

#include "model/detail/IntfRules.h"

namespace Routing::Pim::SparseMode::Detail {

// The answers of an (S,G) record's (*,G) sibling. Without a sibling all answers are
// false and the metric infinite.
template <class Q>
class WcIntfRules {
 public:
   using Bool = typename Q::Bool;

   WcIntfRules( const Q& q, const Intf* intf ) : q_( q ), intf_( intf ) {}

   Bool exists() const { return intf_ != nullptr; }

   Bool joinsWc() const { return intf_ != nullptr ? rules().joinsWc() : false; }
   Bool joinsWcRp() const { return intf_ != nullptr ? rules().joinsWcRp() : false; }
   Bool includeWc() const { return intf_ != nullptr ? rules().includeWc() : false; }
   Bool winnerIsMe() const {
      return intf_ != nullptr ? rules().winnerIsMe() : false;
   }
   Bool lostAssertWc() const {
      return intf_ != nullptr ? rules().lostAssertWc() : false;
   }
   Bool couldAssertWc() const {
      return intf_ != nullptr ? rules().couldAssertWc() : false;
   }
   Bool localReceiverInclude() const {
      return intf_ != nullptr ? rules().localReceiverInclude() : false;
   }
   AssertMetric rptAssertMetric() const {
      return intf_ != nullptr ? rules().rptAssertMetric() : AssertMetric();
   }

 private:
   IntfRules<Q> rules() const { return { q_, *intf_ }; }

   [[no_unique_address]] Q q_;
   const Intf* intf_;
};

template <class Q>
class SgIntfRules : public IntfRules<Q> {
   using Base = IntfRules<Q>;

 public:
   using Bool = typename Q::Bool;
   using Base::assertWinner;
   using Base::iAmDr;
   using Base::immediateOlistWc;
   using Base::includeSg;
   using Base::intf_;
   using Base::joinsSg;
   using Base::joinsWc;
   using Base::localReceiverExclude;
   using Base::localReceiverInclude;
   using Base::lostAssertSg;
   using Base::myIp;
   using Base::noWinner;
   using Base::prunesSgRpt;
   using Base::q_;
   using Base::route;
   using Base::rpf;
   using Base::rpfIntfIsHere;
   using Base::sptAssertMetric;
   using Base::spTree;
   using Base::subject;
   using Base::upJoined;
   using Base::winnerIsMe;
   using Base::winnerMetric;

   // `wc` is the (*,G) route that was found, or null.
   SgIntfRules( const Q& q, const Intf& intf, const Route* wc )
      : Base( q, intf ),
        wc_( wc ),
        wcIntf_( wc != nullptr ? wc->routeIntf( intf.intfId() ) : nullptr ) {}
   SgIntfRules( const Q& q, const Intf& intf )
      : SgIntfRules( q, intf,
                     intf.parentRoute() != nullptr
                        ? std::as_const( *intf.parentRoute() ).wc()
                        : nullptr ) {}

   const Intf* wcIntf() const {
      return q_.neighbor( intf_, "wcIntf", wc() != nullptr ? wcIntf_ : nullptr );
   }

   // ---- membership and outgoing lists (RFC 7761, 4.1.6)

   // pim_exclude(S,G). The assert is that of the (*,G) record: the excluded traffic
   // would come down the shared tree.
   //
   // Deliberately false without a (*,G) record, unlike the RFC: then there is no
   // shared-tree traffic to exclude.
   Bool excludeSg() const {
      RULE( Bool );
      FALSE_UNLESS( localReceiverExclude() );
      FALSE_UNLESS( w().exists() );
      TRUE_IF( w().winnerIsMe() );
      FALSE_IF( w().lostAssertWc() );
      RESULT( iAmDr() );
   }

   // Is there a member on the fast-failover path? Deliberately ignores DR and
   // assert: after a takeover this router would have to serve it.
   Bool includeSgFastFailover() const {
      RULE( Bool );
      FALSE_IF( localReceiverExclude() );
      TRUE_IF( localReceiverInclude() );
      RESULT( w().localReceiverInclude() );
   }

   // inherited_olist(S,G,rpt)
   Bool inheritedOlistSgRpt() const {
      RULE( Bool );
      FALSE_UNLESS( w().exists() );
      FALSE_UNLESS( sharedTreeJoins() || sharedTreeIncludes() );
      FALSE_IF( lostAssertSgRpt() );
      RESULT( !w().lostAssertWc() );
   }

   // inherited_olist(S,G)
   Bool inheritedOlistSg() const {
      RULE( Bool );
      FALSE_IF( lostAssertSg() );
      TRUE_IF( inheritedOlistSgRpt() );
      TRUE_IF( joinsSg() );
      RESULT( includeSg() );
   }

   // ---- the forwarding that follows (RFC 7761, 4.2)

   // Source-tree traffic goes to all interfaces that joined the source or the
   // group. Shared-tree traffic goes to the group's interfaces that did not prune
   // the source; to the others, too, where the source's tree comes in by the same
   // interface, for no packet tells which of both brought it.
   Bool inOlist() const {
      RULE( Bool );
      RESULT_IF( wildCard(), immediateOlistWc() );
      RESULT_IF( spTree(), inheritedOlistSg() );
      RESULT_IF( upJoined() && bothTreesComeIn(), inheritedOlistSg() );
      RESULT( inheritedOlistSgRpt() );
   }

   // Traffic does not leave by its incoming interface.
   Bool forwardDesired() const {
      RULE( Bool );
      FALSE_IF( incomingIntfIsHere() );
      RESULT( inOlist() );
   }

   // The same while traffic comes by the fast-reroute path. Only that path's
   // incoming interface is excluded: the main one brings no traffic then.
   Bool fastForwardDesired() const {
      RULE( Bool );
      FALSE_UNLESS( hasFrrPath() );
      FALSE_IF( iifFrrIsHere() );
      RESULT( inOlist() );
   }

   // ---- asserts (RFC 7761, 4.6)

   // CouldAssert(S,G,I) (4.6.1)
   //
   // Deliberately barred by a lost (*,G) assert even where the (S,G) join or
   // include alone keeps the interface, which the RFC would let assert: a router
   // that lost the link for the group stays silent there for its sources, too.
   Bool couldAssertSg() const {
      RULE( Bool );
      requireSg();
      FALSE_UNLESS( spTree() );
      FALSE_IF( rpfIntfIsHere() );
      RESULT_IF( sharedTreeJoins(), !w().lostAssertWc() );
      RESULT_IF( sharedTreeIncludes(), !w().lostAssertWc() );
      RESULT_IF( joinsSg() || includeSg(), !w().lostAssertWc() );
      RESULT( false );
   }

   // AssertTrackingDesired(S,G,I) (4.6.1)
   //
   // Deliberately, the own join counts only where no (*,G) assert is lost, as in
   // couldAssertSg; and the standby upstream interface tracks asserts as well, so
   // that a failover knows the winner.
   Bool assertTrackingDesiredSg() const {
      RULE( Bool );
      requireSg();
      TRUE_IF( ( sharedTreeJoins() || sharedTreeIncludes() || joinsSg() ) &&
               !w().lostAssertWc() );
      TRUE_IF( localReceiverInclude() && ( iAmDr() || winnerIsMe() ) );
      TRUE_IF( rpfIntfIsHere() && joinDesiredSg() );
      TRUE_IF( rpfFrrIntfIsHere() && joinDesiredSg() );
      FALSE_UNLESS( joinDesiredOfWc() );
      FALSE_UNLESS( rpfIntfOfWcIsHere() );
      RESULT( !spTree() );
   }

   // lost_assert(S,G,rpt,I) (4.6.5)
   Bool lostAssertSgRpt() const {
      RULE( Bool );
      FALSE_IF( rpfIntfOfWcIsHere() );
      FALSE_IF( rpfIntfIsHere() && spTree() );
      FALSE_IF( noWinner() );
      RESULT( !winnerIsMe() );
   }

   // my_assert_metric(S,G,I) (4.6.3)
   AssertMetric myAssertMetricSg() const {
      RULE( AssertMetric );
      RESULT_IF( couldAssertSg(), sptAssertMetric() );
      RESULT_IF( w().couldAssertWc(), w().rptAssertMetric() );
      RESULT( AssertMetric() );
   }

   Bool isAcceptableAssertSg( const AssertMetric& received ) const {
      RULE( Bool );
      FALSE_IF( !received );
      RESULT( received < myAssertMetricSg() );
   }

   Bool isInferiorAssertSg( const AssertMetric& received ) const {
      RULE( Bool );
      const AssertMetric mine = myAssertMetricSg();
      RULE_TRACE( "isInferiorAssertSg mine " << mine << " foreign " << received );
      FALSE_IF( !mine );
      RESULT( mine < received );
   }

   // ---- the parts of the rules

   Bool wildCard() const {
      RULE( Bool );
      FACT( route() != nullptr && route()->wildCard() );
   }

   Bool incomingIntfIsHere() const {
      RULE( Bool );
      RESULT( incomingIntf() == intf_.intfId() );
   }

   Bool bothTreesComeIn() const {
      RULE( Bool );
      const Vantu::IntfId incoming = incomingIntf();
      FACT( !incoming.empty() && incoming == rpf().intfId );
   }

   Bool hasFrrPath() const {
      RULE( Bool );
      FACT( rpfFrr() != Routing::Pim::Rpf() );
   }

   Bool iifFrrIsHere() const {
      RULE( Bool );
      FACT( iifFrr() == intf_.intfId() );
   }

   Bool rpfFrrIntfIsHere() const {
      RULE( Bool );
      FACT( rpfFrrIntf() == intf_.intfId() );
   }

   Bool rpfIntfOfWcIsHere() const {
      RULE( Bool );
      FACT( rpfIntfOfWc() == intf_.intfId() );
   }

   // joins(*,G) - prunes(S,G,rpt)
   Bool sharedTreeJoins() const {
      RULE( Bool );
      RESULT( ( w().joinsWc() || w().joinsWcRp() ) && !prunesSgRpt() );
   }

   // pim_include(*,G) - pim_exclude(S,G)
   Bool sharedTreeIncludes() const {
      RULE( Bool );
      RESULT( w().includeWc() && !excludeSg() );
   }

 private:
   const Route* wc() const {
      return route() != nullptr ? q_.neighbor( *route(), "wc", wc_ ) : nullptr;
   }
   WcIntfRules<Q> w() const { return { q_, wcIntf() }; }

   Vantu::IntfId rpfIntfOfWc() const;
   Routing::Pim::Rpf rpfFrr() const;
   Vantu::IntfId rpfFrrIntf() const { return rpfFrr().intfId; }
   Vantu::IntfId incomingIntf() const;
   Vantu::IntfId iifFrr() const;
   Bool joinDesiredSg() const;
   Bool joinDesiredOfWc() const;

   void requireSg() const {
      const Route* sgRoute = route();
      if ( sgRoute == nullptr ) return;
      MOX_ASSERT( !sgRoute->routeFlags().wildCard() );
   }

   const Route* wc_;
   const Intf* wcIntf_;
};

}
