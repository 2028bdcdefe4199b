// The protocol macros of one interface record alone, as rules (see Rule.h):
// membership and outgoing lists after RFC 7761, 4.1.6, asserts after 4.6.
#pragma once

#include "model/Status.h"
#include "model/detail/Rule.h"

namespace Routing::Pim::SparseMode::Detail {

template <class Q>
class IntfRules {
 public:
   using Bool = typename Q::Bool;

   IntfRules( const Q& q, const Intf& intf ) : q_( q ), intf_( intf ) {}

   const Intf& subject() const { return intf_; }

   // ---- neighbours

   const Routing::Pim::Intf* pimIntf() const {
      const Routing::Pim::Intf* found = nullptr;
      if ( route() != nullptr && route()->pimsmStatus() != nullptr &&
           route()->pimsmStatus()->pimStatus() != nullptr )
         found = route()->pimsmStatus()->pimStatus()->intf( intf_.intfId() );
      return q_.neighbor( intf_.intfId(), "pimIntf", found );
   }

   // ---- state

   Bool joinsWc() const {
      RULE( Bool );
      Intf::JoinState state = q_.input( intf_, "joinState", intf_.joinState() );
      FACT( state == Intf::prunePending || state == Intf::joined );
   }

   Bool joinsSg() const {
      RULE( Bool );
      RESULT( joinsWc() );
   }

   // joins(*,*,RP) of RFC 4601. RFC 7761 has dropped it, and its state is not kept.
   Bool joinsWcRp() const {
      RULE( Bool );
      RESULT( false );
   }

   Bool prunesSgRpt() const {
      RULE( Bool );
      Intf::RptState state = q_.input( intf_, "rptState", intf_.rptState() );
      FACT( state == Intf::rptPruned || state == Intf::rptPruneTemp );
   }

   Vantu::IpGenAddr assertWinner() const { return winnerMetric().address; }

   Vantu::IpGenAddr myIp() const {
      RULE( Vantu::IpGenAddr );
      const Routing::Pim::Intf* pim = pimIntf();
      FACT( pim != nullptr ? q_.input( pim->intfId(), "addr", pim->addr() ).address
                           : Vantu::IpGenAddr() );
   }

   // Deliberately true without a PIM record: such an interface counts as DR, so that
   // its members are served.
   Bool iAmDr() const {
      RULE( Bool );
      const Routing::Pim::Intf* pim = pimIntf();
      FACT( pim == nullptr || q_.input( pim->intfId(), "iAmDr", pim->iAmDr() ) );
   }

   // ---- membership (RFC 7761, 4.1.6)

   // pim_include(*,G)
   Bool includeWc() const {
      RULE( Bool );
      FALSE_UNLESS( localReceiverInclude() );
      TRUE_IF( winnerIsMe() );
      FALSE_IF( lostAssertWc() );
      RESULT( iAmDr() );
   }

   // pim_include(S,G)
   Bool includeSg() const {
      RULE( Bool );
      FALSE_UNLESS( localReceiverInclude() );
      TRUE_IF( winnerIsMe() );
      FALSE_IF( lostAssertSg() );
      RESULT( iAmDr() );
   }

   // ---- outgoing lists (RFC 7761, 4.1.6)

   // immediate_olist(*,*,RP) of RFC 4601
   Bool immediateOlistWcRp() const {
      RULE( Bool );
      RESULT( joinsWcRp() );
   }

   // immediate_olist(*,G)
   Bool immediateOlistWc() const {
      RULE( Bool );
      FALSE_UNLESS( joinsWc() || includeWc() );
      RESULT( !lostAssertWc() );
   }

   // immediate_olist(S,G)
   Bool immediateOlistSg() const {
      RULE( Bool );
      FALSE_IF( lostAssertSg() );
      TRUE_IF( joinsSg() );
      RESULT( includeSg() );
   }

   // ---- asserts (RFC 7761, 4.6)

   // CouldAssert(*,G,I) (4.6.2)
   Bool couldAssertWc() const {
      RULE( Bool );
      FALSE_UNLESS( joinsWcRp() || joinsWc() || includeWc() );
      RESULT( !rpfIntfIsHere() );
   }

   // AssertTrackingDesired(*,G,I) (4.6.2)
   Bool assertTrackingDesiredWc() const {
      RULE( Bool );
      TRUE_IF( couldAssertWc() );
      TRUE_IF( localReceiverInclude() && ( iAmDr() || winnerIsMe() ) );
      FALSE_UNLESS( rptJoinDesiredWc() );
      RESULT( rpfIntfIsHere() );
   }

   // lost_assert(*,G,I) (4.6.5)
   Bool lostAssertWc() const {
      RULE( Bool );
      FALSE_IF( rpfIntfIsHere() );
      FALSE_IF( noWinner() );
      RESULT( !winnerIsMe() );
   }

   // lost_assert(S,G,I) (4.6.5)
   //
   // Deliberately, a route not joined upstream ignores its RPF interface and has an
   // infinite own metric: any foreign winner beats it.
   Bool lostAssertSg() const {
      RULE( Bool );
      RULE_TRACE( "lostAssertSg" << intf_.intfId() );
      FALSE_IF( upJoined() && rpfIntfIsHere() );
      RULE_TRACE( "lostAssertSg"
                  << " assertWinner " << assertWinner() << ", myIp " << myIp()
                  << ", assertWinnerMetric " << winnerMetric()
                  << ", sptAssertMetric " << sptAssertMetric() );
      FALSE_IF( noWinner() );
      FALSE_IF( winnerIsMe() );
      RESULT( winnerMetric() < sptAssertMetric() );
   }

   // spt_assert_metric(S,I) (4.6.3)
   //
   // Deliberately infinite for a route not joined upstream, whose path is not in
   // use. Also infinite without a path: any router with a path is the better
   // forwarder.
   AssertMetric sptAssertMetric() const {
      RULE( AssertMetric );
      RESULT_IF( !upJoined() || noRpf(), AssertMetric() );
      RESULT( ( AssertMetric{ false, rpf().preference, rpf().metric, myIp() } ) );
   }

   // rpt_assert_metric(G,I) (4.6.3), on the record of a (*,G) route. Deliberately
   // infinite without a path, as above.
   AssertMetric rptAssertMetric() const {
      RULE( AssertMetric );
      RESULT_IF( noRpf(), AssertMetric() );
      RESULT( ( AssertMetric{ true, rpf().preference, rpf().metric, myIp() } ) );
   }

   // my_assert_metric (4.6.3) as the (*,G) machine sees it
   AssertMetric myAssertMetricWc() const {
      RULE( AssertMetric );
      RESULT_IF( couldAssertWc(), rptAssertMetric() );
      RESULT( AssertMetric() );
   }

   Bool isPreferredAssertWc( const AssertMetric& received ) const {
      RULE( Bool );
      FALSE_IF( !received );
      RESULT( received < winnerMetric() );
   }

   Bool isPreferredAssertSg( const AssertMetric& received ) const {
      RULE( Bool );
      RULE_TRACE( "isPreferredAssertSg assertWinnerMetric "
                  << winnerMetric() << " foreign " << received );
      FALSE_IF( !received );
      RESULT( received < winnerMetric() );
   }

   Bool isAcceptableAssertWc( const AssertMetric& received ) const {
      RULE( Bool );
      FALSE_IF( !received );
      RESULT( received < myAssertMetricWc() );
   }

   Bool isInferiorAssertWc( const AssertMetric& received ) const {
      RULE( Bool );
      const AssertMetric mine = myAssertMetricWc();
      FALSE_IF( !mine );
      RESULT( mine < received );
   }

   // ---- the parts of the rules

   Bool localReceiverInclude() const {
      RULE( Bool );
      FACT(
         q_.input( intf_, "localReceiverInclude", intf_.localReceiverInclude() ) );
   }

   Bool localReceiverExclude() const {
      RULE( Bool );
      FACT(
         q_.input( intf_, "localReceiverExclude", intf_.localReceiverExclude() ) );
   }

   // Deliberately, an unspecified own address equals no winner: without a winner an
   // interface without address counts as its own winner, so that its members are
   // served whatever the DR role.
   Bool winnerIsMe() const {
      RULE( Bool );
      FACT( assertWinner() == myIp() );
   }

   Bool noWinner() const {
      RULE( Bool );
      FACT( assertWinner().isUnspecified() );
   }

   Bool noRpf() const {
      RULE( Bool );
      FACT( rpf() == Routing::Pim::Rpf() );
   }

   // Without a route the RPF interface is the empty one.
   Bool rpfIntfIsHere() const {
      RULE( Bool );
      FACT( rpf().intfId == intf_.intfId() );
   }

   Bool spTree() const {
      RULE( Bool );
      FACT( route() != nullptr &&
            q_.input( *route(), "spTree", route()->spTree() ) );
   }

   Bool upJoined() const {
      RULE( Bool );
      FACT( route() != nullptr &&
            q_.input( *route(), "upJoinState", route()->upJoinState() ) ==
               SparseMode::upJoined );
   }

 protected:
   const Route* route() const { return intf_.parentRoute(); }

   typename Q::template Read<AssertMetric> winnerMetric() const {
      return q_.input( intf_, "assertWinnerMetric",
                       intf_.assertInfo().assertWinnerMetric );
   }

   typename Q::template Read<Routing::Pim::Rpf> rpf() const;
   Bool rptJoinDesiredWc() const;

   [[no_unique_address]] Q q_;
   const Intf& intf_;
};

}
