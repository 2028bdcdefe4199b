#include "engine/RegisterEngine.h"

#include <gtest/gtest.h>

#include <set>

#include "engine/Advertised.h"
#include "platform/entity/EventCounter.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode;
using Test::addr;
using Test::sgKey;

TEST( Advertised, SourcesFollowTheConfiguration ) {
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   RouterCounters counters;
   VrfConfig config;
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

// Whichever table is full, just the sources that stand in one are known: whoever makes up
// sources takes no more room, and what stands comes to its end.
TEST( Registers, AreKnownWhileATableHoldsThem ) {
   for ( auto full :
         { &RegisterCapacities::registerOif, &RegisterCapacities::noRegisterOif,
           &RegisterCapacities::drDiscoveredSg,
           &RegisterCapacities::anycastDiscoveredSg } ) {
      Mox::TestClock clock;
      Mox::Test::TempRoot root;
      Corvex::EntityManager manager{ clock, nullptr, root.path() };
      RouterCounters counters;
      Journal journal{ counters };
      VrfConfig config;
      config.interfaces = { { Vantu::IntfId( "eth1" ),
                              { { addr( "198.51.100.1" ),
                                  Vantu::IpGenPrefix( "198.51.100.0/24" ) } } } };
      config.rps = {
         { addr( "203.0.113.1" ), { Vantu::IpGenPrefix( "233.252.0.0/24" ) } },
         { addr( "198.51.100.1" ), { Vantu::IpGenPrefix( "233.252.1.0/24" ) } } };
      config.anycastRps = { { addr( "198.51.100.1" ),
                              addr( "198.51.100.1" ),
                              { addr( "203.0.113.4" ) } } };
      Topology topology( config );
      RegisterCapacities capacities;
      capacities.anycastDiscoveredSg = capacities.drDiscoveredSg = 100;
      capacities.noRegisterOif = capacities.registerOif = 100;
      capacities.*full = 4;
      auto tables = RegisterStatus::mount( manager, "tables", ::Brane::tableWriter,
                                           capacities );
      RegisterEngine engine( tables, clock, topology, config, false, journal );
      engine.adopt();
      auto expectKnown = [&] {
         std::set<Routing::Pim::RouteKey> standing;
         for ( const auto* table :
               { &tables->registerOif(), &tables->noRegisterOif(),
                 &tables->drDiscoveredSg(), &tables->anycastDiscoveredSg() } ) {
            for ( const auto& key : table->keys() ) standing.insert( key );
         }
         EXPECT_EQ( engine.size(), standing.size() );
      };
      IpPacket sent, stopped, peers;
      sent.source = stopped.destination = peers.destination =
         addr( "198.51.100.1" );
      sent.destination = stopped.source = addr( "203.0.113.1" );
      peers.source = addr( "203.0.113.4" );
      for ( int step = 0; step < 3; ++step ) {
         for ( int host = 2; host <= 7; ++host ) {
            PimRegister message;
            message.source = addr( "198.51.100." + std::to_string( host ) );
            message.group = addr( step < 2 ? "233.252.0.1" : "233.252.1.1" );
            if ( step == 1 )
               engine.receive( stopped,
                               PimRegisterStop{ .group = message.group,
                                                .source = message.source } );
            else
               engine.receive( step == 0 ? sent : peers, message );
            expectKnown();
         }
      }
      EXPECT_GT( counters.refusedCount( tableFull ), 0u );
      EXPECT_GE( engine.size(), 4u );
      clock.runUntil( 10000 );
      EXPECT_EQ( engine.size(), 0u );
      expectKnown();
   }
}

}
}
