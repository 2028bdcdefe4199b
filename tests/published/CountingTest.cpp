// The counts of a model, against a count of its routes from scratch.
#include "published/Counting.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/count/Counting.h"
#include "tests/support/VrfBuilder.h"

namespace Published {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::RouteKey;
using Routing::Pim::SparseMode::IpAddrCollection;
using Routing::Pim::SparseMode::Status;

using Histogram = std::map<uint32_t, IpAddrCollection>;
using Members = std::map<Vantu::IpGenAddr, std::set<Vantu::IpGenAddr>>;

Histogram histogramOf( const Members& members ) {
   Histogram histogram;
   for ( const auto& [address, others] : members )
      histogram[static_cast<uint32_t>( others.size() )].addrIs( address, true );
   return histogram;
}

void expectCounted( const Counting& counting, const Status& model ) {
   Members sources, groups;
   for ( const auto& route : model.route() ) {
      const RouteKey& key = route.key();
      sources[key.source].insert( key.group );
      auto& senders = groups[key.group];
      if ( !key.source.isUnspecified() ) senders.insert( key.source );
   }
   EXPECT_EQ( histogramText( counting.sources().sourcesByGroupCount() ),
              histogramText( histogramOf( sources ) ) );
   EXPECT_EQ( histogramText( counting.groups().groupsBySourceCount() ),
              histogramText( histogramOf( groups ) ) );
   EXPECT_EQ( model.source().size(), sources.size() );
}

TEST( Counting, SharedTreesCountUnderTheUnspecifiedAddress ) {
   Vrf vrf;
   vrf.wc( "233.252.0.1" );
   Counting counting( vrf.ptr() );
   vrf.wc( "233.252.0.2" );
   vrf.sg( "192.0.2.1", "233.252.0.2" );
   EXPECT_EQ( histogramText( counting.sources().sourcesByGroupCount() ),
              "1{192.0.2.1} 2{0.0.0.0}" );
   EXPECT_EQ( histogramText( counting.groups().groupsBySourceCount() ),
              "0{233.252.0.1} 1{233.252.0.2}" );
}

TEST( Counting, FollowsRandomWalksOfRoutes ) {
   const unsigned seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   Vrf vrf;
   auto counting = std::make_unique<Counting>( vrf.ptr() );
   for ( int step = 0; step < 2000 && !testing::Test::HasFailure(); ++step ) {
      RouteKey key{ sourceAddr( random() % 5 ), groupAddr( random() % 5 ) };
      if ( random() % 3 == 0 ) key = wcKey( valueToStrep( key.group ) );
      if ( random() % 2 == 0 ) {
         vrf->routeIs( key );
      } else {
         vrf->routeDel( key );
      }
      // As after a reload: routes exist, and none is counted yet.
      if ( step % 400 == 399 ) {
         counting.reset();
         counting = std::make_unique<Counting>( vrf.ptr() );
      }
      expectCounted( *counting, *vrf );
   }
   vrf->routeDelAll();
   expectCounted( *counting, *vrf );
}

}
}
