#include "apps/agent/engine/Neighbors.h"

#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"

namespace Agent {
namespace {

using Vantu::IpGenAddr;

IpGenAddr addr( const char* text ) {
   return IpGenAddr( Mox::StringView( text ) );
}

PimHello hello( std::optional<uint16_t> holdtime = 105,
                std::optional<uint32_t> priority = 1,
                std::optional<LanPruneDelay> delay = {} ) {
   PimHello out;
   out.holdtime = holdtime;
   out.drPriority = priority;
   out.lanPruneDelay = delay;
   return out;
}

class NeighborsOfALink : public testing::Test {
 protected:
   // Is it still there shortly before, and gone at that time?
   void expectGoneAfter( const char* address, double seconds ) {
      clock.runUntil( clock.now() + seconds - 0.5 );
      EXPECT_TRUE( neighbors.has( addr( address ) ) );
      clock.runUntil( clock.now() + 0.5 );
      EXPECT_FALSE( neighbors.has( addr( address ) ) );
   }

   Mox::TestClock clock;
   int changes = 0;
   std::string lost;  // " 2" for 192.0.2.2
   Neighbors neighbors{ clock, addr( "192.0.2.5" ), 1,
                        NeighborsObserver{ [this] { ++changes; },
                                           [this]( const IpGenAddr& address ) {
                                              lost += ' ';
                                              lost +=
                                                 valueToStrep( address ).back();
                                           } } };
};

TEST_F( NeighborsOfALink, AHelloLastsForItsHoldTimeOrTheDefault ) {
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 40 ) );
   EXPECT_FALSE( neighbors.has( addr( "192.0.2.3" ) ) );
   expectGoneAfter( "192.0.2.2", 40 );
   EXPECT_EQ( changes, 2 );
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( {} ) );
   expectGoneAfter( "192.0.2.2", Neighbors::defaultHoldtime );
}

// Unlike a join's, a hello's hold time replaces the former one, and may be shorter.
TEST_F( NeighborsOfALink, EachHelloSetsTheTimeAnew ) {
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 0xffff ) );
   clock.runUntil( clock.now() + 100000 );
   EXPECT_TRUE( neighbors.has( addr( "192.0.2.2" ) ) ) << "0xffff is for ever";
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 50 ) );
   expectGoneAfter( "192.0.2.2", 50 );
}

TEST_F( NeighborsOfALink, AHoldTimeOfZeroSaysGoodbye ) {
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 0 ) );
   EXPECT_EQ( changes, 0 ) << "a stranger's goodbye";
   neighbors.receiveHello( addr( "192.0.2.2" ), hello() );
   neighbors.receiveHello( addr( "192.0.2.3" ), hello() );
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 0 ) );
   EXPECT_FALSE( neighbors.has( addr( "192.0.2.2" ) ) );
   EXPECT_TRUE( neighbors.has( addr( "192.0.2.3" ) ) );
   EXPECT_EQ( changes, 3 );
   neighbors.receiveHello( addr( "192.0.2.2" ), hello( 30 ) );
   expectGoneAfter( "192.0.2.2", 30 );
   EXPECT_EQ( lost, " 2 2" );
}

// Whoever has started anew has forgotten what it said (RFC 7761, 4.3.1).
TEST_F( NeighborsOfALink, AnotherGenerationIdTellsOfARestart ) {
   PimHello said = hello();
   neighbors.receiveHello( addr( "192.0.2.2" ), said );
   for ( uint32_t generation : { 7, 7, 8 } ) {
      said.generationId = generation;
      neighbors.receiveHello( addr( "192.0.2.2" ), said );
      EXPECT_TRUE( neighbors.has( addr( "192.0.2.2" ) ) );
   }
   EXPECT_EQ( lost, " 2 2" ) << "an option that appears counts as well";
}

// Whoever makes up senders takes no more room than that, and no neighbour's place.
TEST_F( NeighborsOfALink, AreNoMoreThanSoMany ) {
   auto from = []( size_t i ) {
      return addr(
         ( "10.0." + std::to_string( i / 256 ) + "." + std::to_string( i % 256 ) )
            .c_str() );
   };
   for ( size_t i = 0; i < Neighbors::maxNeighbors; ++i )
      EXPECT_TRUE( neighbors.receiveHello( from( i ), hello() ) );
   EXPECT_FALSE( neighbors.receiveHello( addr( "192.0.2.2" ), hello() ) );
   EXPECT_EQ( neighbors.size(), Neighbors::maxNeighbors );
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), hello() ) );
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), hello( 0 ) ) );
   EXPECT_TRUE( neighbors.receiveHello( addr( "192.0.2.2" ), hello() ) );
}

struct DrRow {
   const char* name;
   uint32_t own;
   std::vector<std::pair<const char*, std::optional<uint32_t>>> others;
   bool iAmDr;
};

// In every row the address and the priority point different ways, unless the row is
// about one of them alone. Own address: 192.0.2.5.
const DrRow kDrRows[] = {
   { "Alone", 0, {}, true },
   { "HigherAddressOfEqualPriority", 1, { { "192.0.2.6", 1 } }, false },
   { "LowerAddressOfEqualPriority", 1, { { "192.0.2.4", 1 } }, true },
   { "HigherPriority", 1, { { "192.0.2.4", 2 } }, false },
   { "LowerPriority", 2, { { "192.0.2.6", 1 } }, true },
   { "HighestPriorityThereIs", 1, { { "192.0.2.4", 0xffffffff } }, false },
   { "PriorityZero", 1, { { "192.0.2.6", 0 } }, true },
   { "AddressWhereOneHasNoPriority", 0, { { "192.0.2.4", {} } }, true },
   { "AddressForAll", 9, { { "192.0.2.4", {} }, { "192.0.2.6", 1 } }, false },
   { "OneOfSeveralIsEnough", 5, { { "192.0.2.1", 6 }, { "192.0.2.9", 1 } }, false },
};

TEST( NeighborsDr, FollowsPriorityThenAddress ) {
   for ( const DrRow& row : kDrRows ) {
      Mox::TestClock clock;
      Neighbors neighbors( clock, addr( "192.0.2.5" ), row.own );
      for ( const auto& [address, priority] : row.others ) {
         neighbors.receiveHello( addr( address ), hello( 105, priority ) );
      }
      EXPECT_EQ( neighbors.iAmDr(), row.iAmDr ) << row.name;
      clock.runUntil( clock.now() + 105 );
      EXPECT_TRUE( neighbors.iAmDr() ) << row.name << ": all have gone";
   }
}

TEST_F( NeighborsOfALink, APruneWaitsOnlyWhereAnotherCouldOverride ) {
   EXPECT_EQ( neighbors.prunePendingTime(), 0 );
   neighbors.receiveHello( addr( "192.0.2.2" ), hello() );
   EXPECT_EQ( neighbors.prunePendingTime(), 0 ) << "nobody but the pruning one";
   neighbors.receiveHello( addr( "192.0.2.3" ), hello() );
   EXPECT_EQ( neighbors.prunePendingTime(), 3.0 );
   neighbors.receiveHello( addr( "192.0.2.3" ), hello( 0 ) );
   EXPECT_EQ( neighbors.prunePendingTime(), 0 );
}

TEST_F( NeighborsOfALink, TheSlowestSetsTheOverrideIntervalIfAllHaveTheOption ) {
   EXPECT_EQ( neighbors.overrideInterval(), 3.0 );
   neighbors.receiveHello( addr( "192.0.2.2" ),
                           hello( 105, 1, LanPruneDelay{ false, 700, 100 } ) );
   EXPECT_DOUBLE_EQ( neighbors.overrideInterval(), 0.7 + 2.5 );
   neighbors.receiveHello( addr( "192.0.2.3" ),
                           hello( 105, 1, LanPruneDelay{ false, 10, 4000 } ) );
   EXPECT_DOUBLE_EQ( neighbors.overrideInterval(), 0.7 + 4.0 );
   neighbors.receiveHello( addr( "192.0.2.4" ), hello( 30 ) );
   EXPECT_DOUBLE_EQ( neighbors.overrideInterval(), 3.0 ) << "one without it";
   clock.runUntil( clock.now() + 30 );
   EXPECT_DOUBLE_EQ( neighbors.overrideInterval(), 4.7 );
   neighbors.receiveHello( addr( "192.0.2.3" ),
                           hello( 105, 1, LanPruneDelay{ false, 20, 30 } ) );
   EXPECT_DOUBLE_EQ( neighbors.overrideInterval(), 3.2 );
}

}
}
