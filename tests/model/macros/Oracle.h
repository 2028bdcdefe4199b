// The protocol macros as RFC 7761 writes them: algebra of sets of interfaces. A set
// is a word with a bit for each port. A comment says where this system departs from it.
#pragma once

#include "tests/model/macros/World.h"

namespace Routing::Pim::SparseMode::Test {

class Oracle {
 public:
   using Set = unsigned;

   explicit Oracle( const World& world )
      : w_( world ),
        wcPath_( pathOf( world.wc.rpf, true ) ),
        sgPath_( pathOf( world.sg.rpf, false ) ),
        frrPath_( pathOf( world.sg.frr, false ) ) {
      if ( !w_.wcRoute ) wcPath_ = { false };
   }

   // ---- 4.3.2, 4.1.6: state

   uint32_t myIp( int i ) const { return ownAddress( i, w_.ports[i].pim ); }
   // Without PIM there is no other: it counts as DR.
   Set iAmDr() const {
      return where( [&]( int i ) {
         const Pim pim = w_.ports[i].pim;
         return pim == Pim::none || pim == Pim::dr || pim == Pim::namelessDr;
      } );
   }
   Set joinsWc() const {
      return where( [&]( int i ) { return wc( i ).join != Join::none; } );
   }
   Set joinsSg() const {
      return where( [&]( int i ) { return sg( i ).join != Join::none; } );
   }
   Set joinsWcRp() const { return 0; }
   Set prunesSgRpt() const {
      return where( [&]( int i ) {
         return sg( i ).rpt == Rpt::pruned || sg( i ).rpt == Rpt::pruneTemp;
      } );
   }

   // ---- 4.1.6: membership and outgoing lists

   Set includeWc() const {
      return membersWc() & ( ( iAmDr() & ~lostAssertWc() ) | wonWc() );
   }
   Set includeSg() const {
      return membersSg() & ( ( iAmDr() & ~lostAssertSg() ) | wonSg() );
   }
   // Without (*,G) record nothing is excluded.
   Set excludeSg() const {
      const Set asked =
         where( [&]( int i ) { return sg( i ).exclude && wc( i ).record; } );
      return asked & ( ( iAmDr() & ~lostAssertWc() ) | wonWc() );
   }
   // Bare membership, exclusion first; no DR, no assert.
   Set includeSgFastFailover() const {
      return ( membersWc() | membersSg() ) &
             where( [&]( int i ) { return sg( i ).record && !sg( i ).exclude; } );
   }
   Set immediateOlistWcRp() const { return 0; }
   Set immediateOlistWc() const {
      return ( joinsWc() | includeWc() ) & ~lostAssertWc();
   }
   Set immediateOlistSg() const {
      return ( joinsSg() | includeSg() ) & ~lostAssertSg();
   }
   Set inheritedOlistSgRpt() const {
      return sharedTree() & ~( lostAssertWc() | lostAssertSgRpt() );
   }
   Set inheritedOlistSg() const {
      return ( inheritedOlistSgRpt() | joinsSg() | includeSg() ) & ~lostAssertSg();
   }

   // ---- 4.2: forwarding

   bool comesBySharedTree() const {
      return w_.wcRoute && !w_.sg.spt && !( sgPath_.record && w_.sg.attached );
   }
   // The path as the metric that it gives.
   Metric incomingRpf() const {
      const Path& path = comesBySharedTree() ? wcPath_ : sgPath_;
      return { false, path.preference, path.metric, path.nextHop };
   }
   bool incomingAttached() const {
      return comesBySharedTree() ? wcPath_.record && w_.wc.attached
                                 : sgPath_.record && w_.sg.attached;
   }
   Set incomingWc() const { return incoming( w_.wc, wcPath_ ); }
   Set incomingSg() const {
      const bool shared = comesBySharedTree() && !w_.sg.border;
      return shared ? incomingWc() : incoming( w_.sg, sgPath_ );
   }
   // Of the ports, or by the register interface; a border's is one of the ports.
   bool bothTreesComeIn() const {
      const bool shared = comesBySharedTree() && !w_.sg.border;
      const Upper& upper = shared ? w_.wc : w_.sg;
      const Path& path = shared ? wcPath_ : sgPath_;
      if ( !path.record || !sgPath_.record || sgPath_.port < 0 ) return false;
      return sgPath_.port == ( upper.border ? kBorderPort : path.port );
   }
   Set inOlistSg() const {
      const bool all = w_.sg.spt || ( w_.sg.upJoined && bothTreesComeIn() );
      return all ? inheritedOlistSg() : inheritedOlistSgRpt();
   }
   Set forwardWc() const { return immediateOlistWc() & ~incomingWc(); }
   Set forwardSg() const { return inOlistSg() & ~incomingSg(); }
   Set fastForwardSg() const {
      const bool path = frrPath_.record && !frrPath_.none();
      return path ? inOlistSg() & ~at( frrPath_ ) : 0;
   }

   // ---- 4.6.1 to 4.6.5: asserts

   Set couldAssertWc() const {
      return ( joinsWc() | includeWc() ) & ~at( wcPath_ );
   }
   // A lost (*,G) assert bars the source's own as well.
   Set couldAssertSg() const {
      if ( !w_.sg.spt ) return 0;
      return ( sharedTree() | joinsSg() | includeSg() ) & ~lostAssertWc() &
             ~at( sgPath_ );
   }
   Set assertTrackingDesiredWc() const {
      return couldAssertWc() | ( membersWc() & ( iAmDr() | wonWc() ) ) |
             ( rptJoinDesiredWc() ? at( wcPath_ ) : 0 );
   }
   // The fast-reroute RPF interface tracks, too; a join does not, with the (*,G) assert
   // lost.
   Set assertTrackingDesiredSg() const {
      const Set upstream = at( sgPath_ ) | at( frrPath_ );
      return ( ( sharedTree() | joinsSg() ) & ~lostAssertWc() ) |
             ( membersSg() & ( iAmDr() | wonSg() ) ) |
             ( upstream && joinDesiredSg() ? upstream : 0 ) |
             ( !w_.sg.spt && joinDesiredWc() ? at( wcPath_ ) : 0 );
   }
   Set lostAssertWc() const {
      return where( [&]( int i ) { return foreign( i, wcWinner( i ) ); } ) &
             ~at( wcPath_ );
   }
   Set lostAssertSgRpt() const {
      return where( [&]( int i ) { return foreign( i, sgWinner( i ) ); } ) &
             ~( at( wcPath_ ) | ( w_.sg.spt ? at( sgPath_ ) : 0 ) );
   }
   // The test of the RPF interface is left out until joined upstream.
   Set lostAssertSg() const {
      const Set lost = where( [&]( int i ) {
         return foreign( i, sgWinner( i ) ) &&
                sgWinner( i ).beats( sptAssertMetric( i ) );
      } );
      return lost & ~( w_.sg.upJoined ? at( sgPath_ ) : 0 );
   }
   Metric wcWinner( int i ) const {
      return metricBeside( wc( i ).winner, true, i, w_.ports[i].pim );
   }
   Metric sgWinner( int i ) const {
      return metricBeside( sg( i ).winner, false, i, w_.ports[i].pim );
   }
   Metric sptAssertMetric( int i ) const {
      return w_.sg.upJoined ? pathMetric( sgPath_, false, i ) : Metric();
   }
   Metric rptAssertMetric( int i ) const { return pathMetric( wcPath_, true, i ); }
   Metric myAssertMetricWc( int i ) const {
      return has( couldAssertWc(), i ) ? rptAssertMetric( i ) : Metric();
   }
   Metric myAssertMetricSg( int i ) const {
      if ( has( couldAssertSg(), i ) ) return sptAssertMetric( i );
      return myAssertMetricWc( i );
   }
   // The infinite metric has no rule of its own: the order alone decides.
   Metric received() const {
      return receivedMetric( w_.received, w_.ports[0].pim );
   }
   Set isPreferredAssertWc() const { return received().beats( wcWinner( 0 ) ); }
   Set isPreferredAssertSg() const { return received().beats( sgWinner( 0 ) ); }
   Set isAcceptableAssertWc() const {
      return received().beats( myAssertMetricWc( 0 ) );
   }
   Set isAcceptableAssertSg() const {
      return received().beats( myAssertMetricSg( 0 ) );
   }
   Set isInferiorAssertWc() const {
      return myAssertMetricWc( 0 ).beats( received() );
   }
   Set isInferiorAssertSg() const {
      return myAssertMetricSg( 0 ).beats( received() );
   }

   // ---- 4.5.4 to 4.5.7: routes

   bool nullImmediateOlistWcRp() const { return immediateOlistWcRp() == 0; }
   bool nullImmediateOlistWc() const { return immediateOlistWc() == 0; }
   bool nullImmediateOlistSg() const { return immediateOlistSg() == 0; }
   bool nullInheritedOlistSg() const { return inheritedOlistSg() == 0; }
   bool nullInheritedOlistSgRpt() const { return inheritedOlistSgRpt() == 0; }
   bool joinDesiredWcRp() const { return !nullImmediateOlistWcRp(); }
   bool joinDesiredWc() const { return !nullImmediateOlistWc() && wcPath_.record; }
   bool rptJoinDesiredWc() const { return joinDesiredWc() || joinDesiredWcRp(); }
   bool joinDesiredSg() const {
      return !nullImmediateOlistSg() ||
             ( !w_.sg.katExpired && !nullInheritedOlistSg() );
   }
   // Nothing is pruned from the register interface, nor off the fast-reroute neighbour.
   bool pruneDesiredSgRpt() const {
      if ( wcPath_.port == kRegister ) return false;
      const bool standby = frrPath_.record && wcPath_.sameNeighbor( frrPath_ );
      return rptJoinDesiredWc() &&
             ( nullInheritedOlistSgRpt() ||
               ( w_.sg.spt && !wcPath_.sameNeighbor( sgPath_ ) && !standby ) );
   }
   bool joinDesiredSgFastFailover() const {
      return ( includeSgFastFailover() & w_.failover ) != 0;
   }

 private:
   template <class Holds>
   static Set where( Holds holds ) {
      Set set = 0;
      for ( int i = 0; i != kPorts; ++i )
         if ( holds( i ) ) set |= 1U << i;
      return set;
   }
   // Without an upstream record there is no incoming interface.
   static Set incoming( const Upper& upper, const Path& path ) {
      if ( !path.record ) return 0;
      return upper.border ? 1U << kBorderPort : at( path );
   }
   static bool has( Set set, int i ) { return ( set >> i & 1 ) != 0; }
   static Set at( const Path& path ) {
      return path.port >= 0 && path.port < kPorts ? 1U << path.port : 0;
   }

   // A port without the record has no state there.
   const Facts& wc( int i ) const {
      return w_.wcRoute && w_.ports[i].wc.record ? w_.ports[i].wc : nothing_;
   }
   const Facts& sg( int i ) const {
      return w_.ports[i].sg.record ? w_.ports[i].sg : nothing_;
   }
   Set membersWc() const {
      return where( [&]( int i ) { return wc( i ).include; } );
   }
   Set membersSg() const {
      return where( [&]( int i ) { return sg( i ).include; } );
   }
   Set sharedTree() const {
      return ( joinsWc() & ~prunesSgRpt() ) | ( includeWc() & ~excludeSg() );
   }
   // No winner is this router where its own address is unspecified.
   bool isMe( int i, const Metric& winner ) const {
      return winner.address == myIp( i );
   }
   bool foreign( int i, const Metric& winner ) const {
      return winner.address != 0 && !isMe( i, winner );
   }
   Set wonWc() const {
      return where( [&]( int i ) { return isMe( i, wcWinner( i ) ); } );
   }
   Set wonSg() const {
      return where( [&]( int i ) { return isMe( i, sgWinner( i ) ); } );
   }
   Metric pathMetric( const Path& path, bool rpt, int i ) const {
      if ( path.none() ) return {};
      return { rpt, path.preference, path.metric, myIp( i ) };
   }

   const World& w_;
   Path wcPath_, sgPath_, frrPath_;
   Facts nothing_;
};

}
