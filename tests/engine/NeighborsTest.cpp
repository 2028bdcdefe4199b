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
   EXPECT_EQ( neighbors.size(), Neighbors::maxNeighbors );
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), {} ) );
   PimHello goodbye;
   goodbye.holdtime = 0;
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), goodbye ) );
   EXPECT_TRUE( neighbors.receiveHello( addr( "192.0.2.2" ), {} ) );
}

// A router that has lost its primary address without a goodbye, and has another.
TEST( NeighborsOfALink, AnAddressBelongsToWhoToldItLast ) {
   Mox::TestClock clock;
   std::string moved;
   NeighborsObserver observer;
   observer.event = [&]( const Vantu::IpGenAddr& address, NeighborEvent event ) {
      if ( event == NeighborEvent::moved ) moved += valueToStrep( address ) + " ";
   };
   Neighbors neighbors( clock, { addr( "fe80::5" ) }, observer );
   PimHello hello;
   hello.addresses = { addr( "2001:db8::2" ), addr( "2001:db8::3" ) };
   neighbors.receiveHello( addr( "fe80::2" ), hello );
   hello.addresses = { addr( "2001:db8::2" ) };
   neighbors.receiveHello( addr( "fe80::9" ), hello );
   EXPECT_EQ( moved, "fe80::2 " );
   EXPECT_EQ( neighbors.primaryOf( addr( "2001:db8::2" ) ), addr( "fe80::9" ) );
   EXPECT_EQ( neighbors.primaryOf( addr( "2001:db8::3" ) ), addr( "fe80::2" ) );
   neighbors.receiveHello( addr( "fe80::9" ), hello );
   EXPECT_EQ( moved, "fe80::2 " );
}

}
}
