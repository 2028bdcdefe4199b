// The effects of messages are in registers.scenario; this file tests damage and
// changes of the tables.
#include "engine/RegisterEngine.h"

#include <gtest/gtest.h>

#include "engine/Advertised.h"
#include "platform/loop/TestClock.h"
#include "tests/support/Damage.h"
#include "tests/support/TempRoot.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode;
using Test::addr;
using Test::sgKey;

// This router is the first hop of 198.51.100.0/24, whose RP is 203.0.113.1.
VrfConfig firstHop() {
   const Vantu::IntfId eth1( "eth1" );
   VrfConfig out;
   out.name = L3::VrfName( "default" );
   out.interfaces = {
      { eth1,
        { { addr( "198.51.100.1" ), Vantu::IpGenPrefix( "198.51.100.0/24" ) } } } };
   out.rps = { { addr( "203.0.113.1" ), {} } };
   return out;
}

class Registers : public testing::Test {
 public:
   Registers() { start(); }

   void start() {
      engine.reset();
      tables.reset();
      RegisterCapacities capacities;
      capacities.anycastDiscoveredSg = capacities.drDiscoveredSg = 4;
      capacities.noRegisterOif = capacities.registerOif = 4;
      tables = RegisterStatus::mount( manager, "tables", ::Brane::tableWriter,
                                      capacities );
      engine = std::make_unique<RegisterEngine>( tables, clock, topology, config,
                                                 counters );
      engine->adopt();
   }
   static Routing::Pim::RouteKey key( int host ) {
      return sgKey( "198.51.100." + std::to_string( host ), "233.252.0.1" );
   }
   static IpPacket packet( const char* from, const char* to ) {
      IpPacket out;
      out.source = addr( from );
      out.destination = addr( to );
      return out;
   }
   // This router registers the source, and gets a register-stop.
   void data( int host ) {
      PimRegister message;
      message.source = key( host ).source;
      message.group = key( host ).group;
      engine->receive( packet( "198.51.100.1", "203.0.113.1" ), message );
   }
   void stop( int host ) {
      engine->receive(
         packet( "203.0.113.1", "198.51.100.1" ),
         PimRegisterStop{ key( host ).group, 32, key( host ).source } );
   }

   Mox::TestClock clock{ 10000.0 };
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   RouterCounters counters;
   VrfConfig config = firstHop();
   Topology topology{ config };
   Mox::Ptr<RegisterStatus> tables;
   std::unique_ptr<RegisterEngine> engine;
};

TEST_F( Registers, ThatFindNoRoomAreCounted ) {
   for ( int host = 2; host <= 7; ++host ) data( host );
   EXPECT_EQ( counters.refusedCount( tableFull ), 2u );
   EXPECT_EQ( engine->size(), 4u );
   EXPECT_EQ( tables->registerOif().size(), 4u );
   clock.runUntil( 10300 );
   EXPECT_EQ( engine->size(), 0u );
   EXPECT_EQ( tables->registerOif().size(), 0u );
}

// The damaged source keeps its state, the others work as always. Ending it is a
// write that the table refuses for good. The next agent starts without it.
TEST_F( Registers, OutliveADamagedRecordUntilItIsWritten ) {
   data( 7 );
   Mox::Test::breakStamp( root.path() + "/tables/registerOif", key( 7 ) );
   data( 7 );
   data( 8 );
   EXPECT_TRUE( tables->registerOif().has( key( 8 ) ) );
   EXPECT_NE( tables->registerOifControl()->problem(), "" );
   EXPECT_EQ( Mox::Test::assertionText( [&] { stop( 7 ); } ),
              "write outside the mapped region" );
   start();
   data( 7 );
   stop( 7 );
   EXPECT_TRUE( tables->noRegisterOif().has( key( 7 ) ) );
   EXPECT_FALSE( tables->registerOif().has( key( 7 ) ) );
   EXPECT_TRUE( tables->registerOif().has( key( 8 ) ) );
}

TEST_F( Registers, AdvertisedSourcesFollowTheConfiguration ) {
   auto table = AdvertisedSgStatus::mount( manager, "t", ::Brane::tableWriter, 2 );
   auto entry = [&]( const char* group, bool anycast ) {
      return AdvertisedConfig{ addr( "10.0.0.1" ), addr( group ),
                               addr( "10.9.9.9" ), anycast };
   };
   constexpr auto kFamily = Vantu::AddressFamily::ipv4;
   config.advertised = {
      entry( "239.1.1.1", false ),
      entry( "239.1.1.2", true ),
      { addr( "2001:db8::1" ), addr( "ff3e::1" ), addr( "2001:db8::9" ), false } };
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( table->coll().size(), 2u );
   AdvertisedSg seen;
   ASSERT_EQ( table->coll().find( sgKey( "10.0.0.1", "239.1.1.2" ), seen ),
              ::Brane::lookupFound );
   EXPECT_EQ( seen.rp, addr( "10.9.9.9" ) );
   EXPECT_TRUE( seen.anycastDiscovered );
   auto writes = [&] { return Mox::eventCounter( "t", "collIs" )->value(); };
   EXPECT_EQ( writes(), 2u );
   // One entry goes, one changes, and the new one finds room in a full table.
   config.advertised = { entry( "239.1.1.2", false ), entry( "239.1.1.3", false ) };
   publishAdvertised( *table, config, kFamily, counters );
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( writes(), 4u );
   EXPECT_EQ( table->coll().size(), 2u );
   config.advertised.push_back( entry( "239.1.1.4", false ) );
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( counters.refusedCount( tableFull ), 1u );
}

}
}
