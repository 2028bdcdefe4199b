// A World as entities.
#pragma once

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
   explicit Model( const World& world )
      : received(
           modelMetric( receivedMetric( world.received, world.ports[0].pim ) ) ) {
      for ( int i = 0; i != kPorts; ++i ) pimIs( i, world.ports[i].pim );
      vrf->pimStatusIs( pim );
      upperIs( *sg, world.sg, false );
      if ( world.wcRoute ) wc = vrf.wc( kGroup ).ptr();
      if ( wc != nullptr ) upperIs( *wc, world.wc, true );
      for ( int i = 0; i != kPorts; ++i ) {
         factsIs( *sg, world.ports[i].sg, i, false, world.ports[i].pim );
         if ( wc != nullptr )
            factsIs( *wc, world.ports[i].wc, i, true, world.ports[i].pim );
         if ( ( world.failover >> i & 1 ) != 0 ) failover->intfIs( id( i ) );
      }
      if ( ( world.failover >> kPorts & 1 ) != 0 )
         failover->intfIs( intfId( "eth9" ) );
   }
   // The ports, the upstream and the register interface.
   static Vantu::IntfId id( int port ) {
      constexpr const char* names[] = { "eth1", "eth2", "eth3", "eth0",
                                        "Register0" };
      return port == kNowhere ? Vantu::IntfId() : intfId( names[port] );
   }
   // The records of port 0; the (*,G) one may be null.
   Intf* sgIntf() const { return sg->routeIntf( id( 0 ) ); }
   Intf* wcIntf() const {
      return wc != nullptr ? wc->routeIntf( id( 0 ) ) : nullptr;
   }

   static constexpr const char* kGroup = "233.252.0.1";

   Vrf vrf;
   Mox::Ptr<Routing::Pim::Status> pim = Mox::newEntity<Routing::Pim::Status>();
   Mox::Ptr<Route> sg = vrf->routeIs( sgKey( "192.0.2.77", kGroup ) );
   Mox::Ptr<Route> wc;
   Mox::Ptr<IntfCollection> failover = intfCollectionFactory();
   AssertMetric received;

 private:
   static Rpf rpfOf( const Path& path ) {
      return { id( path.port ),
               addressOf( path.nextHop ),
               uint8_t( path.preference ),
               { path.metric } };
   }
   void pimIs( int i, Pim state ) {
      if ( state == Pim::none ) return;
      Mox::Ptr<Routing::Pim::Intf> intf = pim->intfIs( id( i ) );
      intf->addrIs( { addressOf( ownAddress( i, state ) ), 24 } );
      intf->iAmDrIs( state == Pim::dr || state == Pim::namelessDr );
   }
   static void upperIs( Route& route, const Upper& upper, bool wc ) {
      RouteBuilder builder{ Mox::Ptr<Route>( &route ) };
      const Path main = pathOf( upper.rpf, wc ), backup = pathOf( upper.frr, wc );
      route.umh()->mbrIifIs( id( kBorderPort ) );
      builder.rpf( rpfOf( main ) ).attached( upper.attached );
      if ( !main.record ) route.umhDel();
      if ( backup.record ) builder.rpfFrr( rpfOf( backup ) );
      builder.spTree( upper.spt ).upJoined( upper.upJoined );
      route.mbrIs( upper.border );
      route.katExpiredIs( upper.katExpired );
   }
   static void factsIs( Route& route, const Facts& facts, int i, bool wc,
                        Pim pim ) {
      if ( !facts.record ) return;
      constexpr Intf::JoinState joins[] = { Intf::noInfo, Intf::joined,
                                            Intf::prunePending };
      Mox::Ptr<Intf> intf = route.routeIntfIs( id( i ), &route );
      intf->joinStateIs( joins[int( facts.join )] );
      intf->rptStateIs( Intf::RptStateInstance( uint32_t( facts.rpt ) ) );
      intf->localReceiverIncludeIs( facts.include );
      intf->localReceiverExcludeIs( facts.exclude );
      // No macro reads assertState, so it is set to a contradicting value.
      intf->assertInfoIs(
         { facts.winner == Winner::me ? iAmAssertLoser : iAmAssertWinner,
           modelMetric( metricBeside( facts.winner, wc, i, pim ) ) } );
   }
};

}
