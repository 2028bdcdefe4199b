#include "apps/agent/engine/AssertEngine.h"

#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using namespace Routing::Pim::SparseMode;

const char* const kGroup = "233.252.0.1";

// A (*,G) route, joined on eth1, and (S,G) routes where they are made.
class Asserts : public testing::Test {
 protected:
   Asserts() {
      vrf.pimIntf( "eth0", "192.0.2.5" ).pimIntf( "eth1", "203.0.113.5" );
      vrf.wc( kGroup ).rpTree().rpf( "eth0" ).upJoined().intf( "eth1" ).joined();
   }
   RouteBuilder sg() {
      auto route = vrf.sg( "192.0.2.1", kGroup ).spTree().rpf( "eth0" ).upJoined();
      route.intf( "eth1" ).joined();
      return route;
   }
   void receive( const char* source, bool rptBit, uint32_t preference,
                 const char* group = kGroup, uint8_t length = 32 ) {
      PimAssert message{ addr( group ), length,     addr( source ),
                         rptBit,        preference, 1 };
      engine.receive( intfId( "eth1" ), addr( "203.0.113.9" ), message );
   }
   AssertState state( const Routing::Pim::RouteKey& key ) {
      const Intf* intf = routes.find( key, intfId( "eth1" ) ).get();
      return intf == nullptr ? assertNoInfo : intf->assertInfo().assertState;
   }
   AssertState shared() { return state( wcKey( kGroup ) ); }
   AssertState ofSource() { return state( sgKey( "192.0.2.1", kGroup ) ); }

   Mox::TestClock clock;
   Vrf vrf;
   VrfConfig config;
   Topology topology{ config };
   Routes routes{ vrf.ptr(), clock, topology, nullptr };
   AgentCounters counters;
   AssertEngine engine{ routes, clock, counters };
};

// RFC 7761, 4.6.2: the group's machine hears what the source's one does not take up.
TEST_F( Asserts, OfASourceComeToTheGroupOnlyWhereTheSourceHoldsNone ) {
   receive( "192.0.2.1", true, 1 );
   EXPECT_EQ( shared(), iAmAssertLoser );
   EXPECT_EQ( vrf->route( sgKey( "192.0.2.1", kGroup ) ), nullptr )
      << "none was made for the source";
   engine.handleNeighborLost( intfId( "eth1" ), addr( "203.0.113.9" ) );
   EXPECT_EQ( shared(), assertNoInfo );
   sg();
   receive( "192.0.2.1", true, 1 );
   EXPECT_EQ( ofSource(), iAmAssertWinner );
   EXPECT_EQ( shared(), assertNoInfo );
   receive( "192.0.2.1", true, 1 );
   EXPECT_EQ( shared(), assertNoInfo ) << "the source still holds one";
   receive( "0.0.0.0", true, 1 );
   EXPECT_EQ( shared(), iAmAssertLoser );
}

TEST_F( Asserts, LostOnesEndWithJoinsNeighboursAndInterfaces ) {
   sg();
   auto lose = [&] {
      receive( "192.0.2.1", false, 1 );
      receive( "0.0.0.0", true, 1 );
      ASSERT_EQ( ofSource(), iAmAssertLoser );
      ASSERT_EQ( shared(), iAmAssertLoser );
   };
   lose();
   PimJoinPrune joins;
   JoinPruneGroup& group = joins.groups.emplace_back();
   group.address = addr( kGroup );
   group.joins = { { addr( "192.0.2.1" ), 32, true, false, true } };
   engine.receive( intfId( "eth1" ), joins );
   EXPECT_EQ( ofSource(), iAmAssertLoser ) << "an (S,G,rpt) join is none of these";
   group.joins = { { addr( "192.0.2.1" ), 32, true, false, false } };
   engine.receive( intfId( "eth1" ), joins );
   EXPECT_EQ( ofSource(), assertNoInfo );
   EXPECT_EQ( shared(), iAmAssertLoser );
   group.joins = { { addr( "198.51.100.1" ), 32, true, true, true } };
   engine.receive( intfId( "eth1" ), joins );
   EXPECT_EQ( shared(), assertNoInfo );
   lose();
   engine.handleNeighborLost( intfId( "eth1" ), addr( "203.0.113.8" ) );
   engine.handleNeighborLost( intfId( "eth0" ), addr( "203.0.113.9" ) );
   EXPECT_EQ( ofSource(), iAmAssertLoser ) << "another router, another link";
   engine.handleNeighborLost( intfId( "eth1" ), addr( "203.0.113.9" ) );
   EXPECT_EQ( ofSource(), assertNoInfo );
   EXPECT_EQ( shared(), assertNoInfo );
   lose();
   engine.handleIntfGone( intfId( "eth1" ) );
   EXPECT_EQ( ofSource(), assertNoInfo );
   EXPECT_EQ( shared(), assertNoInfo );
}

TEST_F( Asserts, ThatMakeNoSenseAreRefused ) {
   receive( "0.0.0.0", true, 1, "192.0.2.1" );
   receive( "0.0.0.0", true, 1, "224.0.0.5" );
   receive( "0.0.0.0", true, 1, kGroup, 24 );
   receive( "224.1.1.1", true, 1 );
   receive( "0.0.0.0", true, 1, "233.252.0.2" );
   EXPECT_EQ( counters.text(),
              "refused: notMulticast 1, linkLocalGroup 1, "
              "partialMask 1, badSource 1, noRoute 1" );
   EXPECT_EQ( shared(), assertNoInfo );
}

}
}
