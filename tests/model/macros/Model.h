// Holds a World as entities, and turns one World into the next by changing only the
// differences, so that millions can be walked.
#pragma once

#include <optional>

#include "model/IntfCollection.h"
#include "tests/model/macros/World.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {

inline Vantu::IpGenAddr addressOf( uint32_t number ) {
   return Vantu::IpGenAddr( in_addr{ htonl( number ) } );
}
inline uint32_t numberOf( const Vantu::IpGenAddr& address ) {
   const auto& b = address.bytes();
   return uint32_t( b[0] ) << 24 | uint32_t( b[1] ) << 16 | uint32_t( b[2] ) << 8 |
          b[3];
}
inline AssertMetric modelMetric( const Metric& metric ) {
   return { metric.rpt,
            metric.preference,
            { metric.metric },
            addressOf( metric.address ) };
}
inline Metric plainMetric( const AssertMetric& metric ) {
   return { metric.rptBit, metric.preference.value(), metric.metric.value,
            numberOf( metric.address ) };
}

class Model {
 public:
   Model() {
      constexpr const char* names[] = { "eth1", "eth2", "eth3", "eth0",
                                        "Register0" };
      for ( const char* name : names ) ids_.push_back( intfId( name ) );
      vrf_->pimStatusIs( pim_ );
      makeWc();
      for ( bool wc : { true, false } ) upperIs( wc, {} );
      for ( int i = 0; i != kPorts; ++i ) portIs( i, {} );
      foreign_ = intfId( "eth9" );
   }

   void operator=( const World& next ) {
      if ( next.wcRoute != now_.wcRoute ) {
         if ( next.wcRoute ) {
            makeWc();
            upperIs( true, next.wc );
            for ( int i = 0; i != kPorts; ++i ) wcFactsIs( i, next.ports[i] );
         } else {
            vrf_->routeDel( wcKey( kGroup ) );
            wc_.reset();
            for ( auto& intf : wcIntf_ ) intf.reset();
         }
      }
      if ( next.wcRoute && !( next.wc == now_.wc ) ) upperIs( true, next.wc );
      if ( !( next.sg == now_.sg ) ) upperIs( false, next.sg );
      for ( int i = 0; i != kPorts; ++i )
         if ( !( next.ports[i] == now_.ports[i] ) ) portIs( i, next.ports[i] );
      if ( next.received != now_.received ||
           next.ports[0].pim != now_.ports[0].pim )
         received_ =
            modelMetric( receivedMetric( next.received, next.ports[0].pim ) );
      if ( next.failover != now_.failover ) failoverIs( next.failover );
      now_ = next;
   }

   static Vantu::IntfId portId( int i ) {
      constexpr const char* names[] = { "eth1", "eth2", "eth3" };
      return intfId( names[i] );
   }

   const Route& wc() const { return *wc_; }
   const Route& sg() const { return *sg_; }
   const Intf& wcIntf() const { return *wcIntf_[0]; }
   const Intf& sgIntf() const { return *sgIntf_[0]; }
   const AssertMetric& received() const { return received_; }
   const IntfCollection& failover() const { return *failover_; }

 private:
   static constexpr const char* kGroup = "233.252.0.1";

   void makeWc() {
      wc_ = vrf_->routeIs( wcKey( kGroup ) );
      wc_->wildCardIs( true );
   }
   static Rpf rpfOf( const std::vector<Vantu::IntfId>& ids, const Path& path ) {
      return { path.port == kNowhere ? Vantu::IntfId() : ids[path.port],
               addressOf( path.nextHop ),
               uint8_t( path.preference ),
               { path.metric } };
   }
   void upperIs( bool wc, const Upper& upper ) {
      Route& route = wc ? *wc_ : *sg_;
      if ( Path path = pathOf( upper.rpf, wc ); path.record ) {
         Mox::Ptr<UpstreamInfo> umh = route.umhIs();
         umh->routeIs( &route );
         umh->rpfIs( rpfOf( ids_, path ) );
         umh->rpfAttachedIs( upper.attached );
         umh->mbrIifIs( ids_[kBorderPort] );
      } else {
         route.umhDel();
      }
      if ( Path path = pathOf( upper.frr, wc ); path.record ) {
         Mox::Ptr<UpstreamInfo> frr = route.umhFrrIs();
         frr->routeIs( &route );
         frr->frrIs( true );
         frr->rpfIs( rpfOf( ids_, path ) );
      } else {
         route.umhFrrDel();
      }
      route.spTreeIs( upper.spt );
      route.mbrIs( upper.border );
      route.upJoinStateIs( upper.upJoined ? upJoined : upNotJoined );
      route.katExpiredIs( upper.katExpired );
   }
   void portIs( int i, const Port& port ) {
      pimIs( i, port.pim );
      if ( wc_ != nullptr ) wcFactsIs( i, port );
      factsIs( *sg_, sgIntf_[i], i, false, port );
   }
   void wcFactsIs( int i, const Port& port ) {
      factsIs( *wc_, wcIntf_[i], i, true, port );
   }
   void pimIs( int i, Pim pim ) {
      if ( pim == Pim::none ) {
         pim_->intfDel( ids_[i] );
         return;
      }
      Mox::Ptr<Routing::Pim::Intf> intf = pim_->intfIs( ids_[i] );
      intf->addrIs( { addressOf( ownAddress( i, pim ) ), 24 } );
      intf->iAmDrIs( pim == Pim::dr || pim == Pim::namelessDr );
   }
   void factsIs( Route& route, Mox::Ptr<Intf>& intf, int i, bool wc,
                 const Port& port ) {
      const Facts& facts = wc ? port.wc : port.sg;
      if ( !facts.record ) {
         route.routeIntfDel( ids_[i] );
         intf.reset();
         return;
      }
      constexpr Intf::JoinState joins[] = { Intf::noInfo, Intf::joined,
                                            Intf::prunePending };
      constexpr Intf::RptState rpts[] = { Intf::rptNoInfo, Intf::rptPruned,
                                          Intf::rptPrunePending, Intf::rptPruneTemp,
                                          Intf::rptPrunePendingTemp };
      if ( intf == nullptr ) intf = route.routeIntfIs( ids_[i], &route );
      intf->joinStateIs( joins[int( facts.join )] );
      intf->rptStateIs( rpts[int( facts.rpt )] );
      intf->localReceiverIncludeIs( facts.include );
      intf->localReceiverExcludeIs( facts.exclude );
      // No macro reads assertState, so it is set to a contradicting value.
      intf->assertInfoIs(
         { facts.winner == Winner::me ? iAmAssertLoser : iAmAssertWinner,
           modelMetric( metricBeside( facts.winner, wc, i, port.pim ) ) } );
   }
   void failoverIs( uint8_t set ) {
      failover_->intfDelAll();
      for ( int i = 0; i <= kPorts; ++i )
         if ( ( set >> i & 1 ) != 0 )
            failover_->intfIs( i == kPorts ? foreign_ : ids_[i] );
   }

   Vrf vrf_;
   Mox::Ptr<Routing::Pim::Status> pim_ = Mox::newEntity<Routing::Pim::Status>();
   Mox::Ptr<Route> wc_;
   Mox::Ptr<Route> sg_ = vrf_->routeIs( sgKey( "192.0.2.77", kGroup ) );
   std::array<Mox::Ptr<Intf>, kPorts> wcIntf_, sgIntf_;
   Mox::Ptr<IntfCollection> failover_ = intfCollectionFactory();
   AssertMetric received_;
   std::vector<Vantu::IntfId> ids_;
   Vantu::IntfId foreign_;
   World now_;
};

}
