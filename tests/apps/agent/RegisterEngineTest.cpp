#include "apps/agent/engine/RegisterEngine.h"

#include <gtest/gtest.h>

#include <sstream>

#include "apps/agent/config/ConfigReader.h"
#include "apps/agent/engine/Advertised.h"
#include "platform/loop/TestClock.h"
#include "tests/apps/agent/MachineRun.h"
#include "tests/support/Damage.h"
#include "tests/support/TempRoot.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode;
using Test::addr;
using Test::sgKey;

// One router in two roles:
//
//    198.51.100.0/24 sources -- eth1 [this] eth0 -- 192.0.2.0/24 -- RP 203.0.113.1
//
// and itself the RP of 239.0.0.0/8, alone, and of 238.0.0.0/8, with a peer.
const char* const kConfig =
   "vrfs:\n"
   "- name: default\n"
   "  interfaces:\n"
   "  - {name: eth0, addresses: [192.0.2.1/24]}\n"
   "  - {name: eth1, addresses: [198.51.100.1/24]}\n"
   "  - {name: lo, addresses: [203.0.113.8/32, 203.0.113.9/32]}\n"
   "  rpf-routes:\n"
   "  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 192.0.2.254}\n"
   "  rps:\n"
   "  - {address: 203.0.113.1}\n"
   "  - {address: 203.0.113.9, groups: [239.0.0.0/8]}\n"
   "  - {address: 203.0.113.8, groups: [238.0.0.0/8], anycast-peers: "
   "[192.0.2.77]}\n";

constexpr const char* kAttached = "198.51.100.7";
constexpr const char* kRemote = "10.0.0.7";

class Registers : public testing::Test {
 protected:
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
   }

   static VrfConfig parse( const std::string& text ) {
      return parseConfig( text, "test" ).vrfs[0];
   }

   void receiveRegister( const char* from, const char* to, const char* source,
                         const char* group, bool nullRegister = false ) {
      PimRegister message;
      message.source = addr( source );
      message.group = addr( group );
      message.nullRegister = nullRegister;
      engine->receive( packet( from, to ), message );
   }
   void receiveStop( const char* from, const char* to, const char* source,
                     const char* group, uint8_t maskLength = 32 ) {
      PimRegisterStop message{ addr( group ), maskLength, addr( source ) };
      engine->receive( packet( from, to ), message );
   }
   // Of an attached source to the RP, and the RP's answer.
   void send( bool nullRegister = false, const char* source = kAttached ) {
      receiveRegister( "192.0.2.1", "203.0.113.1", source, "233.252.0.1",
                       nullRegister );
   }
   void stop( const char* source = kAttached ) {
      receiveStop( "203.0.113.1", "192.0.2.1", source, "233.252.0.1" );
   }

   static IpPacket packet( const char* from, const char* to ) {
      IpPacket out;
      out.source = addr( from );
      out.destination = addr( to );
      return out;
   }

   // The tables that hold the key: "oif", "no-oif", "dr", "anycast".
   std::string in( const char* source = kAttached,
                   const char* group = "233.252.0.1" ) const {
      auto key = sgKey( source, group );
      std::string out;
      if ( tables->registerOif().has( key ) ) out += "oif ";
      if ( tables->noRegisterOif().has( key ) ) out += "no-oif ";
      if ( tables->drDiscoveredSg().has( key ) ) out += "dr ";
      if ( tables->anycastDiscoveredSg().has( key ) ) out += "anycast ";
      return out.empty() ? "none" : out.substr( 0, out.size() - 1 );
   }

   Mox::TestClock clock{ 10000.0 };
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   AgentCounters counters;
   VrfConfig config = parse( kConfig );
   Topology topology{ config };
   Mox::Ptr<RegisterStatus> tables;
   std::unique_ptr<RegisterEngine> engine;
};

class FirstHop : public Registers,
                 public testing::WithParamInterface<MachineRow> {};

TEST_P( FirstHop, RegistersUntilStoppedAndAgainAfterwards ) {
   MachineRun run( clock, [&] { return in(); } );
   run.play( GetParam().script, [&]( const MachineStep& step ) {
      if ( step.event == "data" ) send();
      if ( step.event == "null" ) send( true );
      if ( step.event == "stop" ) stop();
   } );
   EXPECT_EQ( run.history(), GetParam().history );
   EXPECT_EQ( engine->size(), 0u );
}

INSTANTIATE_TEST_SUITE_P(
   Scripts, FirstHop,
   testing::Values(
      MachineRow{ "Alone", "0 data", "0 oif dr, 210 none" },
      MachineRow{ "Refreshed", "0 data, 100 data", "0 oif dr, 310 none" },
      MachineRow{ "Stopped", "0 data, 10 stop",
                  "0 oif dr, 10 no-oif dr, 70 oif dr, 210 none" },
      MachineRow{ "StoppedAgainAtTheProbe", "0 data, 10 stop, 65 null, 66 stop",
                  "0 oif dr, 10 no-oif dr, 126 oif dr, 275 none" },
      MachineRow{ "ProbeAloneEndsNoSuppression", "0 data, 10 stop, 20 null",
                  "0 oif dr, 10 no-oif dr, 70 oif dr, 230 none" },
      MachineRow{ "DataShowsThatItGoesOn", "0 data, 10 stop, 20 data",
                  "0 oif dr, 10 no-oif dr, 20 oif dr, 230 none" },
      MachineRow{ "AStopShowsTheSource", "0 stop",
                  "0 no-oif dr, 60 oif dr, 210 none" },
      MachineRow{ "StoppedToTheEnd", "0 data, 200 stop",
                  "0 oif dr, 200 no-oif dr, 210 none" } ),
   []( const auto& row ) { return std::string( row.param.name ); } );

TEST_F( Registers, AStopMayMeanEverySourceOfItsGroup ) {
   send();
   send( false, "198.51.100.8" );
   receiveRegister( "192.0.2.1", "203.0.113.1", kAttached, "233.252.0.2" );
   stop( "0.0.0.0" );
   EXPECT_EQ( in(), "no-oif dr" );
   EXPECT_EQ( in( "198.51.100.8" ), "no-oif dr" );
   EXPECT_EQ( in( kAttached, "233.252.0.2" ), "oif dr" );
   EXPECT_EQ( engine->size(), 3u );
}

TEST_F( Registers, ArriveAtTheRpFromRoutersAndPeers ) {
   receiveRegister( "192.0.2.50", "203.0.113.9", kRemote, "239.1.1.1" );
   EXPECT_EQ( in( kRemote, "239.1.1.1" ), "no-oif" );
   // Passed on to the peer; what a peer passed on is not.
   receiveRegister( "192.0.2.50", "203.0.113.8", kRemote, "238.1.1.1" );
   EXPECT_EQ( in( kRemote, "238.1.1.1" ), "oif" );
   receiveRegister( "192.0.2.77", "192.0.2.1", kRemote, "238.1.1.2" );
   EXPECT_EQ( in( kRemote, "238.1.1.2" ), "no-oif anycast" );
   // Both at once, and the peer's outlives the other.
   clock.runUntil( 10100 );
   receiveRegister( "192.0.2.77", "192.0.2.1", kRemote, "238.1.1.1" );
   EXPECT_EQ( in( kRemote, "238.1.1.1" ), "oif anycast" );
   clock.runUntil( 10185 );
   EXPECT_EQ( in( kRemote, "238.1.1.1" ), "no-oif anycast" );
   EXPECT_EQ( in( kRemote, "239.1.1.1" ), "none" );
   clock.runUntil( 10285 );
   EXPECT_EQ( engine->size(), 0u );
   EXPECT_EQ( tables->noRegisterOif().size() + tables->anycastDiscoveredSg().size(),
              0u );
}

TEST_F( Registers, ThatDoNotConcernUsChangeNothing ) {
   using Row = std::pair<Refusal, std::function<void()>>;
   auto sent = [&]( const char* from, const char* to, const char* source,
                    const char* group ) {
      return [=, this] { receiveRegister( from, to, source, group ); };
   };
   auto stopped = [&]( const char* from, const char* to, const char* source,
                       const char* group, uint8_t mask = 32 ) {
      return [=, this] { receiveStop( from, to, source, group, mask ); };
   };
   const char* rp = "203.0.113.1";
   for ( const auto& [refusal, act] :
         { Row{ notMulticast, sent( "192.0.2.50", "203.0.113.9", kRemote, rp ) },
           { linkLocalGroup,
             sent( "192.0.2.50", "203.0.113.9", kRemote, "224.0.0.5" ) },
           { badSource,
             sent( "192.0.2.50", "203.0.113.9", "0.0.0.0", "239.1.1.1" ) },
           { badSource,
             sent( "192.0.2.50", "203.0.113.9", "239.1.1.1", "239.1.1.1" ) },
           { notToUs, sent( "192.0.2.50", rp, kRemote, "233.252.0.1" ) },
           { notTheRp, sent( "192.0.2.50", "192.0.2.1", kRemote, "233.252.0.1" ) },
           // To an own address that is not the group's RP, and not from a peer.
           { notTheRp, sent( "192.0.2.50", "192.0.2.1", kRemote, "239.1.1.1" ) },
           { notTheRp, sent( "192.0.2.77", "203.0.113.8", kRemote, "239.1.1.1" ) },
           { ownPacket, sent( "203.0.113.8", "192.0.2.77", kRemote, "238.1.1.1" ) },
           { notToUs, stopped( rp, "192.0.2.2", kAttached, "233.252.0.1" ) },
           { ownPacket,
             stopped( "203.0.113.9", "10.0.0.1", kRemote, "239.1.1.1" ) },
           { rpMismatch,
             stopped( "203.0.113.2", "192.0.2.1", kAttached, "233.252.0.1" ) },
           { notRegistered, stopped( rp, "192.0.2.1", kRemote, "233.252.0.1" ) },
           { partialMask,
             stopped( rp, "192.0.2.1", kAttached, "233.252.0.1", 24 ) },
           { notMulticast,
             stopped( rp, "192.0.2.1", kAttached, "192.0.2.9" ) } } ) {
      SCOPED_TRACE( std::string( stringValue( refusal ) ) );
      uint64_t before = counters.refusedCount( refusal );
      act();
      EXPECT_EQ( counters.refusedCount( refusal ), before + 1 );
      EXPECT_EQ( engine->size(), 0u );
   }
   EXPECT_EQ( tables->registerOif().size() + tables->noRegisterOif().size(), 0u );
}

TEST_F( Registers, AreTakenUpAfterARestart ) {
   send();
   send( false, "198.51.100.8" );
   stop( "198.51.100.8" );
   receiveRegister( "192.0.2.50", "203.0.113.9", kRemote, "239.1.1.1" );
   receiveRegister( "192.0.2.77", "192.0.2.1", kRemote, "238.1.1.2" );
   receiveRegister( "192.0.2.77", "192.0.2.1", kRemote, "238.1.1.1" );
   receiveRegister( "192.0.2.50", "203.0.113.8", kRemote, "238.1.1.1" );
   clock.runUntil( 10050 );
   start();
   engine->adopt();
   EXPECT_EQ( engine->size(), 5u );
   EXPECT_EQ( in( kRemote, "238.1.1.1" ), "oif anycast" );
   EXPECT_EQ( in(), "oif dr" );
   EXPECT_EQ( in( "198.51.100.8" ), "no-oif dr" );
   EXPECT_EQ( in( kRemote, "239.1.1.1" ), "no-oif" );
   EXPECT_EQ( in( kRemote, "238.1.1.2" ), "no-oif anycast" );
   clock.runUntil( 10110 );
   EXPECT_EQ( in( "198.51.100.8" ), "oif dr" );
   clock.runUntil( 10235 );
   EXPECT_EQ( engine->size(), 2u );
   clock.runUntil( 10260 );
   EXPECT_EQ( engine->size(), 0u );
   EXPECT_EQ( tables->registerOif().size(), 0u );
}

TEST_F( Registers, EndWithTheConfigurationThatTheyRestOn ) {
   send();
   receiveRegister( "192.0.2.50", "203.0.113.9", kRemote, "239.1.1.1" );
   receiveRegister( "192.0.2.50", "203.0.113.8", kRemote, "238.1.1.1" );
   std::string text = kConfig;
   text.erase( text.find( ", anycast-peers: [192.0.2.77]" ), 29 );
   config = parse( text );
   engine->updateConfig();
   EXPECT_EQ( in( kRemote, "238.1.1.1" ), "no-oif" );
   EXPECT_EQ( in(), "oif dr" );
   text.erase( text.find( "  - {address: 203.0.113.9" ) );
   text.replace( text.find( "198.51.100.1/24" ), 15, "198.51.101.1/24" );
   config = parse( text );
   engine->updateConfig();
   EXPECT_EQ( engine->size(), 0u );
   EXPECT_EQ( in(), "none" );
}

TEST_F( Registers, ThatFindNoRoomAreCounted ) {
   for ( unsigned i = 1; i <= 6; ++i ) {
      receiveRegister( "192.0.2.50", "203.0.113.9",
                       ( "10.0.0." + std::to_string( i ) ).c_str(), "239.1.1.1" );
   }
   EXPECT_EQ( counters.refusedCount( tableFull ), 2u );
   EXPECT_EQ( engine->size(), 4u );
   EXPECT_EQ( tables->noRegisterOif().size(), 4u );
   clock.runUntil( 10300 );
   EXPECT_EQ( tables->noRegisterOif().size(), 0u );
}

// The damaged source goes on as it is, the others like ever; to end it is a write that
// the table refuses for good. The next agent starts without it.
TEST_F( Registers, OutliveADamagedRecordUntilItIsWritten ) {
   send();
   Mox::Test::breakStamp( root.path() + "/tables/registerOif",
                          sgKey( kAttached, "233.252.0.1" ) );
   send();
   send( false, "198.51.100.8" );
   EXPECT_EQ( in( "198.51.100.8" ), "oif dr" );
   EXPECT_NE( tables->registerOifControl()->problem(), "" );
   EXPECT_EQ( Mox::Test::assertionText( [&] { stop(); } ),
              "write outside the mapped region" );
   start();
   engine->adopt();
   EXPECT_EQ( in( "198.51.100.8" ), "oif dr" );
   send();
   stop();
   EXPECT_EQ( in(), "no-oif dr" );
}

TEST( Advertised, FollowsTheConfiguration ) {
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager( clock, nullptr, root.path() );
   AgentCounters counters;
   auto table = AdvertisedSgStatus::mount( manager, "t", ::Brane::tableWriter, 2 );
   auto entry = [&]( const char* group, bool anycast ) {
      return AdvertisedConfig{ addr( "10.0.0.1" ), addr( group ),
                               addr( "10.9.9.9" ), anycast };
   };
   VrfConfig config;
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
   // One goes, one changes, and in a full table the new one has its room.
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
