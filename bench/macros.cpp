// The cost of the protocol macros: the empty-olist tests over a route of 60
// interfaces, none of which ends the walk early.
//
//    peer    visits 60 heap objects of 128 bytes through a vector of pointers and
//            reads three flags of each
//    byHand  the same rule as nullImmediateOlistWc, written out over public readers
//
// Hot: one route again and again. Cold: a random one of 10,000 each time. Run it with
// --benchmark_enable_random_interleaving=true --benchmark_repetitions=15.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <random>
#include <vector>

#include "model/Status.h"

namespace Routing::Pim::SparseMode {
namespace {

constexpr unsigned kIntfs = 60;
constexpr unsigned kRoutes = 10000;

struct alignas( 64 ) PeerIntf {
   char before[40] = {};
   bool joined = false;
   bool included = false;
   char between[60] = {};
   bool lost = false;
};
static_assert( sizeof( PeerIntf ) == 128 );

using PeerRoute = std::vector<std::unique_ptr<PeerIntf>>;

bool nullOlist( const PeerRoute& route ) {
   for ( const auto& intf : route ) {
      if ( intf->joined || intf->included || intf->lost ) return false;
   }
   return true;
}

bool includeByHand( const Intf& intf ) {
   if ( !intf.localReceiverInclude() ) return false;
   if ( intf.assertWinner() == intf.myIp() ) return true;
   if ( intf.lostAssertWc() ) return false;
   return intf.iAmDr();
}

bool nullOlistByHand( const Route& route ) {
   for ( const Intf& intf : route.routeIntf() ) {
      bool joins =
         intf.joinState() == Intf::prunePending || intf.joinState() == Intf::joined;
      if ( !joins && !includeByHand( intf ) ) continue;
      if ( !intf.lostAssertWc() ) return false;
   }
   return true;
}

RouteKey keyOf( unsigned i, bool wildcard ) {
   Vantu::IpGenAddr group(
      fmt::format( "239.{}.{}.{}", i / 62500, i / 250 % 250, i % 250 + 1 ) );
   return { wildcard ? Vantu::IpGenAddr() : Vantu::IpGenAddr( "198.51.100.7" ),
            group };
}

// All routes, made in another order than that of the visits.
struct Routes {
   Routes() : model( statusFactory( L3::VrfName( "default" ) ) ) {
      std::vector<Vantu::IntfId> ids;
      for ( unsigned j = 0; j < kIntfs; ++j )
         ids.emplace_back( fmt::format( "eth{}", j ) );
      std::vector<unsigned> order( kRoutes );
      for ( unsigned i = 0; i < kRoutes; ++i ) order[i] = i;
      std::shuffle( order.begin(), order.end(), std::mt19937( 1 ) );
      for ( bool wildcard : { true, false } ) {
         for ( unsigned i : order ) {
            Mox::Ptr<Route> route = model->routeIs( keyOf( i, wildcard ) );
            route->wildCardIs( wildcard );
            for ( Vantu::IntfId id : ids ) route->routeIntfIs( id );
         }
      }
      peers.resize( kRoutes );
      for ( unsigned i : order ) {
         for ( unsigned j = 0; j < kIntfs; ++j )
            peers[i].push_back( std::make_unique<PeerIntf>() );
      }
      for ( unsigned i = 0; i < kRoutes; ++i ) {
         wc.push_back( model->route( keyOf( i, true ) ) );
         sg.push_back( model->route( keyOf( i, false ) ) );
      }
   }
   Mox::Ptr<Status> model;
   std::vector<PeerRoute> peers;
   std::vector<const Route*> wc, sg;
};

const Routes& routes() {
   static const Routes all;
   return all;
}

template <class Ask>
void walk( benchmark::State& state, const Ask& ask ) {
   bool cold = state.range( 0 ) != 0;
   const Routes& all = routes();
   std::mt19937 random( 7 );
   std::vector<unsigned> picks( 1 << 16 );
   for ( unsigned& pick : picks ) pick = cold ? random() % kRoutes : 0;
   size_t next = 0;
   for ( auto _ : state ) {
      if ( !ask( all, picks[next++ % picks.size()] ) )
         state.SkipWithError( "not empty" );
   }
   state.SetItemsProcessed( state.iterations() * kIntfs );
}

void peer( benchmark::State& state ) {
   walk( state, []( const Routes& all, unsigned i ) {
      return nullOlist( all.peers[i] );
   } );
}
void byHand( benchmark::State& state ) {
   walk( state, []( const Routes& all, unsigned i ) {
      return nullOlistByHand( *all.wc[i] );
   } );
}
void nullImmediateOlistWc( benchmark::State& state ) {
   walk( state, []( const Routes& all, unsigned i ) {
      return all.wc[i]->nullImmediateOlistWc();
   } );
}
void nullInheritedOlistSg( benchmark::State& state ) {
   walk( state, []( const Routes& all, unsigned i ) {
      return all.sg[i]->nullInheritedOlistSg();
   } );
}

BENCHMARK( peer )->ArgName( "cold" )->Arg( 0 )->Arg( 1 );
BENCHMARK( byHand )->ArgName( "cold" )->Arg( 0 )->Arg( 1 );
BENCHMARK( nullImmediateOlistWc )->ArgName( "cold" )->Arg( 0 )->Arg( 1 );
BENCHMARK( nullInheritedOlistSg )->ArgName( "cold" )->Arg( 0 )->Arg( 1 );

}
}

BENCHMARK_MAIN();
