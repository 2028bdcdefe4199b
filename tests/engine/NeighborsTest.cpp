#include "engine/Neighbors.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using Routing::Pim::SparseMode::Test::addr;

// Invented senders take limited room, and never a neighbour's place.
TEST( NeighborsOfALink, AreNoMoreThanSoMany ) {
   Mox::TestClock clock;
   Neighbors neighbors( clock, { addr( "192.0.2.5" ) } );
   auto from = []( size_t i ) {
      return addr( fmt::format( "10.0.{}.{}", i / 256, i % 256 ) );
   };
   for ( size_t i = 0; i < Neighbors::maxNeighbors; ++i )
      EXPECT_TRUE( neighbors.receiveHello( from( i ), {} ) );
   EXPECT_FALSE( neighbors.receiveHello( addr( "192.0.2.2" ), {} ) );
   neighbors.adopt( addr( "192.0.2.2" ), {} );
   EXPECT_EQ( neighbors.size(), Neighbors::maxNeighbors );
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), {} ) );
   PimHello goodbye;
   goodbye.holdtime = 0;
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), goodbye ) );
   EXPECT_TRUE( neighbors.receiveHello( addr( "192.0.2.2" ), {} ) );
}

}
}
