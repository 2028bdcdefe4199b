// Builds the route state of one VRF in the protocol's words.
//
//    Vrf vrf;
//    auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).spTree().rpf( "eth0" );
//    auto i = sg.intf( "eth1" ).joined();
//    vrf.wc( "233.252.0.1" ).rpf( "eth0" ).intf( "eth1" ).lostAssertTo( "192.0.2.9"
//    );
//
// The usual topology; any other names and addresses serve as well:
//
//     source 192.0.2.1        RP 198.51.100.1
//             \                 /
//          192.0.2.254 (next hop of both)
//                    |
//                   eth0 [110/20]
//              this router
//               eth1  eth2 ...
//                |
//        receivers, and rival routers such as 192.0.2.9
//
// A builder names its route or interface, making it when it is not there yet: the
// same words may be said again later to change a fact. `builder->` reaches the
// entity, which the builder keeps alive; get() gives the plain pointer. A missing
// route, interface or PIM interface is only missing until it is mentioned.
#pragma once

#include "model/StatusColl.h"

namespace Routing::Pim::SparseMode::Test {

inline Vantu::IpGenAddr addr( Mox::StringView text ) {
   return Vantu::IpGenAddr( text );
}
inline Vantu::IntfId intfId( Mox::StringView name ) {
   return Vantu::IntfId( name );
}
inline RouteKey sgKey( Mox::StringView source, Mox::StringView group ) {
   return { addr( source ), addr( group ) };
}
inline RouteKey wcKey( Mox::StringView group ) {
   return { Vantu::IpGenAddr::unspecified( addr( group ).family() ),
            addr( group ) };
}
inline Rpf rpfBy( Mox::StringView intf, Mox::StringView neighbor = "192.0.2.254",
                  uint8_t preference = 110, uint32_t metric = 20 ) {
   return { intfId( intf ), addr( neighbor ), preference, { metric } };
}
inline AssertMetric assertMetric( Mox::StringView text ) {
   return Mox::stringToValue<AssertMetric>( text );
}

// The base of the builders: a counted reference to the entity.
template <class T>
class Builder {
 public:
   explicit Builder( Mox::Ptr<T> entity ) : entity_( std::move( entity ) ) {}

   T* operator->() const { return entity_.get(); }
   T& operator*() const { return *entity_; }
   T* get() const { return entity_.get(); }
   const Mox::Ptr<T>& ptr() const { return entity_; }
   // Releases the entity; the builder cannot be used afterwards.
   void release() { entity_.reset(); }

 private:
   Mox::Ptr<T> entity_;
};

// One downstream interface of a route.
class IntfBuilder : public Builder<Intf> {
 public:
   using Builder::Builder;

   IntfBuilder& joined() { return joinState( Intf::joined ); }
   IntfBuilder& prunePending() { return joinState( Intf::prunePending ); }
   IntfBuilder& joinState( Intf::JoinState state ) {
      get()->joinStateIs( state );
      return *this;
   }
   IntfBuilder& rptPruned() { return rptState( Intf::rptPruned ); }
   IntfBuilder& rptState( Intf::RptState state ) {
      get()->rptStateIs( state );
      return *this;
   }
   // Local receivers ask for the traffic, or exclude the source.
   IntfBuilder& include( bool on = true ) {
      get()->localReceiverIncludeIs( on );
      return *this;
   }
   IntfBuilder& exclude( bool on = true ) {
      get()->localReceiverExcludeIs( on );
      return *this;
   }
   // Lost to a router whose metric beats every own metric of the same tree.
   IntfBuilder& lostAssertTo( Mox::StringView winner ) {
      bool shared = get()->parentRoute()->wildCard();
      return assertIs( iAmAssertLoser, { shared, 0, { 0 }, addr( winner ) } );
   }
   // Lost to exactly this metric: lostAssert( "[S] 192.0.2.9 [110/10]" ).
   IntfBuilder& lostAssert( Mox::StringView winnerMetric ) {
      return assertIs( iAmAssertLoser, assertMetric( winnerMetric ) );
   }
   IntfBuilder& wonAssert( Mox::StringView ownMetric ) {
      return assertIs( iAmAssertWinner, assertMetric( ownMetric ) );
   }

 private:
   IntfBuilder& assertIs( AssertState state, const AssertMetric& winner ) {
      get()->assertInfoIs( { state, winner } );
      return *this;
   }
};

// One (*,G) or (S,G) route.
class RouteBuilder : public Builder<Route> {
 public:
   using Builder::Builder;

   RouteBuilder& spTree( bool on = true ) { return does( &Route::spTreeIs, on ); }
   RouteBuilder& rpTree( bool on = true ) { return does( &Route::rpTreeIs, on ); }
   RouteBuilder& switching( bool on = true ) {
      return does( &Route::switchingIs, on );
   }
   RouteBuilder& katExpired( bool on = true ) {
      return does( &Route::katExpiredIs, on );
   }
   RouteBuilder& iifSwitching( Route::IifSwitchState state ) {
      get()->iifSwitchStateIs( state );
      return does( &Route::iifSwitchingIs, true );
   }
   // Learned from a border router, behind this interface; "" for none.
   RouteBuilder& mbr( Mox::StringView iif ) {
      get()->umhIs()->mbrIifIs( intfId( iif ) );
      return does( &Route::mbrIs, true );
   }

   RouteBuilder& rpf( Mox::StringView intf ) { return rpf( rpfBy( intf ) ); }
   RouteBuilder& rpf( const Rpf& rpf ) {
      get()->umhIs()->rpfIs( rpf );
      return *this;
   }
   RouteBuilder& prevRpf( Mox::StringView intf ) {
      get()->umhIs()->prevRpfIs( rpfBy( intf ) );
      return *this;
   }
   // The source or RP is directly connected.
   RouteBuilder& attached( bool on = true ) {
      get()->umhIs()->rpfAttachedIs( on );
      return *this;
   }
   // The fast-reroute path.
   RouteBuilder& rpfFrr( Mox::StringView intf ) { return rpfFrr( rpfBy( intf ) ); }
   RouteBuilder& rpfFrr( const Rpf& rpf ) {
      Mox::Ptr<UpstreamInfo> backup = get()->umhFrrIs();
      backup->routeIs( get() );
      backup->frrIs( true );
      backup->rpfIs( rpf );
      return *this;
   }
   RouteBuilder& rp( Mox::StringView address ) {
      get()->umhIs()->rpIs( addr( address ) );
      return *this;
   }
   RouteBuilder& upJoined( bool on = true ) {
      get()->upJoinStateIs( on ? SparseMode::upJoined : upNotJoined );
      return *this;
   }
   RouteBuilder& upRpt( UpRptState state ) {
      get()->umhIs()->upRptStateIs( state );
      return *this;
   }

   IntfBuilder intf( Mox::StringView name ) {
      return IntfBuilder( get()->routeIntfIs( intfId( name ), get() ) );
   }

 private:
   RouteBuilder& does( void ( Route::*mutator )( bool ), bool on ) {
      ( get()->*mutator )( on );
      return *this;
   }
};

class Vrf : public Builder<Status> {
 public:
   // Builds on any status, for instance a reader's.
   explicit Vrf(
      Mox::Ptr<Status> status = statusFactory( L3::VrfName( "default" ) ) )
      : Builder( std::move( status ) ) {}

   RouteBuilder sg( Mox::StringView source, Mox::StringView group ) {
      return RouteBuilder( get()->routeIs( sgKey( source, group ) ) );
   }
   RouteBuilder wc( Mox::StringView group ) {
      RouteBuilder route( get()->routeIs( wcKey( group ) ) );
      route->wildCardIs( true );
      return route;
   }

   // A PIM interface with its address; this router is or is not the DR there.
   Vrf& pimIntf( Mox::StringView name, Mox::StringView address, bool dr = false ) {
      if ( pim_ == nullptr ) {
         pim_ = Mox::newEntity<Routing::Pim::Status>();
         get()->pimStatusIs( pim_ );
      }
      Mox::Ptr<Routing::Pim::Intf> intf = pim_->intfIs( intfId( name ) );
      intf->addrIs( { addr( address ), 24 } );
      intf->iAmDrIs( dr );
      return *this;
   }
   // The PIM status that pimIntf() made; null before.
   Routing::Pim::Status* pim() const { return pim_.get(); }

 private:
   Mox::Ptr<Routing::Pim::Status> pim_;
};

}
