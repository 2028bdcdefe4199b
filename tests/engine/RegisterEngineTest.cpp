#include "engine/RegisterEngine.h"

#include <gtest/gtest.h>

#include <map>

#include "apps/config/ConfigReader.h"
#include "engine/Advertised.h"
#include "platform/loop/TestClock.h"
#include "tests/engine/ScriptRun.h"
#include "tests/support/Damage.h"
#include "tests/support/TempRoot.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
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
constexpr const char* kRouter = "192.0.2.50";
constexpr const char* kPeer = "192.0.2.77";
constexpr const char* kRp = "203.0.113.1";

// A, B and C are of sources on eth1, R and P of groups whose RP this router is.
const std::map<std::string, std::pair<const char*, const char*>> kSources = {
   { "A", { kAttached, "233.252.0.1" } },
   { "B", { "198.51.100.8", "233.252.0.1" } },
   { "C", { kAttached, "233.252.0.2" } },
   { "R", { kRemote, "239.1.1.1" } },
   { "P", { kRemote, "238.1.1.1" } } };

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
   // The configuration with one text replaced.
   void configure( const std::string& text = "", const std::string& by = "" ) {
      std::string all = kConfig;
      config = Agent::parseConfig( all.replace( all.find( text ), text.size(), by ),
                                   "test" )
                  .vrfs[0];
      topology.configIs( config );
      engine->updateConfig();
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
   static IpPacket packet( const char* from, const char* to ) {
      IpPacket out;
      out.source = addr( from );
      out.destination = addr( to );
      return out;
   }
   // "data A" and "null A" go to the RP, "stop A" is its answer; "router R" and "peer P"
   // come here.
   void act( const ScriptWords& words ) {
      const std::string& event = words[0];
      if ( event == "restart" ) return start();
      if ( event == "peerless" )
         return configure( ", anycast-peers: [192.0.2.77]" );
      if ( event == "not-rp" ) return configure( "203.0.113.8/32, 203.0.113.9/32" );
      if ( event == "moved" )
         return configure( "198.51.100.1/24", "198.51.101.1/24" );
      const auto& [source, group] = kSources.at( words[1] );
      if ( event == "stop" ) receiveStop( kRp, "192.0.2.1", source, group );
      if ( event == "stopAll" ) receiveStop( kRp, "192.0.2.1", "0.0.0.0", group );
      if ( event == "data" || event == "null" )
         receiveRegister( "192.0.2.1", kRp, source, group, event == "null" );
      if ( event == "router" )
         receiveRegister( kRouter, words[1] == "R" ? "203.0.113.9" : "203.0.113.8",
                          source, group );
      if ( event == "peer" ) receiveRegister( kPeer, "192.0.2.1", source, group );
   }
   // The tables that hold each source: "A oif dr; R no-oif anycast".
   std::string state() const {
      std::string out;
      for ( const auto& [name, source] : kSources ) {
         auto key = sgKey( source.first, source.second );
         std::string in;
         if ( tables->registerOif().has( key ) ) in += " oif";
         if ( tables->noRegisterOif().has( key ) ) in += " no-oif";
         if ( tables->drDiscoveredSg().has( key ) ) in += " dr";
         if ( tables->anycastDiscoveredSg().has( key ) ) in += " anycast";
         if ( !in.empty() ) out += ( out.empty() ? "" : "; " ) + name + in;
      }
      return out.empty() ? "none" : out;
   }

   Mox::TestClock clock{ 10000.0 };
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   RouterCounters counters;
   VrfConfig config = Agent::parseConfig( kConfig, "test" ).vrfs[0];
   Topology topology{ config };
   Mox::Ptr<RegisterStatus> tables;
   std::unique_ptr<RegisterEngine> engine;
};

const ScriptRow kRows[] = {
   // As the first hop: register until stopped, and again afterwards.
   { "0 data A, 100 data A", "0 A oif dr, 310 none" },
   { "0 data A, 10 stop A", "0 A oif dr, 10 A no-oif dr, 70 A oif dr, 210 none" },
   { "0 data A, 10 stop A, 65 null A, 66 stop A",
     "0 A oif dr, 10 A no-oif dr, 126 A oif dr, 275 none" },
   { "0 data A, 10 stop A, 20 null A",
     "0 A oif dr, 10 A no-oif dr, 70 A oif dr, 230 none" },
   { "0 data A, 10 stop A, 20 data A",
     "0 A oif dr, 10 A no-oif dr, 20 A oif dr, 230 none" },
   { "0 stop A", "0 A no-oif dr, 60 A oif dr, 210 none" },
   { "0 data A, 200 stop A", "0 A oif dr, 200 A no-oif dr, 210 none" },
   { "0 data A, 0 data B, 0 data C, 200 stopAll A",
     "0 A oif dr, 0 A oif dr; B oif dr, 0 A oif dr; B oif dr; C oif dr, "
     "200 A no-oif dr; B no-oif dr; C oif dr, 210 none" },
   { "0 data A, 1 moved", "0 A oif dr, 1 none" },
   // As the RP: passed on to the peer; what a peer passed on is not.
   { "0 router R", "0 R no-oif, 185 none" },
   { "0 peer P", "0 P no-oif anycast, 185 none" },
   { "0 router P, 100 peer P",
     "0 P oif, 100 P oif anycast, 185 P no-oif anycast, 285 none" },
   { "0 router P, 1 peerless", "0 P oif, 1 P no-oif, 185 none" },
   { "0 router R, 0 peer P, 1 not-rp",
     "0 R no-oif, 0 P no-oif anycast; R no-oif, 1 none" },
   // Taken up after a restart.
   { "0 data A, 5 data B, 5 stop B, 50 restart",
     "0 A oif dr, 5 A oif dr; B oif dr, 5 A oif dr; B no-oif dr, "
     "110 A oif dr; B oif dr, 260 none" },
   { "0 router R, 50 restart", "0 R no-oif, 235 none" },
   { "0 peer P, 50 restart", "0 P no-oif anycast, 235 none" },
   { "0 router P, 0 peer P, 50 restart", "0 P oif, 0 P oif anycast, 235 none" },
};

TEST_F( Registers, FollowTheirMessages ) {
   for ( const auto& [script, history] : kRows ) {
      configure();
      EXPECT_EQ( playScript( clock, script, *this ), history ) << script;
      EXPECT_EQ( engine->size(), 0u ) << script;
   }
}

struct RefusedRow {
   Refusal refusal;
   const char* from;
   const char* to;
   const char* source;
   const char* group;
   uint8_t mask = 32;
};
const RefusedRow kRefused[] = {
   { notMulticast, kRouter, "203.0.113.9", kRemote, kRp },
   { linkLocalGroup, kRouter, "203.0.113.9", kRemote, "224.0.0.5" },
   { badSource, kRouter, "203.0.113.9", "0.0.0.0", "239.1.1.1" },
   { badSource, kRouter, "203.0.113.9", "239.1.1.1", "239.1.1.1" },
   { notToUs, kRouter, kRp, kRemote, "233.252.0.1" },
   { notTheRp, kRouter, "192.0.2.1", kRemote, "233.252.0.1" },
   // To an own address that is not the group's RP, and not from a peer.
   { notTheRp, kRouter, "192.0.2.1", kRemote, "239.1.1.1" },
   { notTheRp, kPeer, "203.0.113.8", kRemote, "239.1.1.1" },
   { ownPacket, "203.0.113.8", kPeer, kRemote, "238.1.1.1" },
};
const RefusedRow kRefusedStops[] = {
   { notToUs, kRp, "192.0.2.2", kAttached, "233.252.0.1" },
   { ownPacket, "203.0.113.9", "10.0.0.1", kRemote, "239.1.1.1" },
   { rpMismatch, "203.0.113.2", "192.0.2.1", kAttached, "233.252.0.1" },
   { notRegistered, kRp, "192.0.2.1", kRemote, "233.252.0.1" },
   { partialMask, kRp, "192.0.2.1", kAttached, "233.252.0.1", 24 },
   { notMulticast, kRp, "192.0.2.1", kAttached, "192.0.2.9" },
};

TEST_F( Registers, ThatDoNotConcernUsChangeNothing ) {
   auto expectRefused = [this]( const RefusedRow& row, auto receive ) {
      uint64_t before = counters.refusedCount( row.refusal );
      receive();
      EXPECT_EQ( counters.refusedCount( row.refusal ), before + 1 )
         << row.from << row.to;
      EXPECT_EQ( engine->size(), 0u );
   };
   for ( const RefusedRow& row : kRefused )
      expectRefused(
         row, [&] { receiveRegister( row.from, row.to, row.source, row.group ); } );
   for ( const RefusedRow& row : kRefusedStops )
      expectRefused( row, [&] {
         receiveStop( row.from, row.to, row.source, row.group, row.mask );
      } );
   EXPECT_EQ( tables->registerOif().size() + tables->noRegisterOif().size(), 0u );
}

TEST_F( Registers, ThatFindNoRoomAreCounted ) {
   for ( unsigned i = 1; i <= 6; ++i ) {
      receiveRegister( kRouter, "203.0.113.9",
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
   act( { "data", "A" } );
   Mox::Test::breakStamp( root.path() + "/tables/registerOif",
                          sgKey( kAttached, "233.252.0.1" ) );
   act( { "data", "A" } );
   act( { "data", "B" } );
   EXPECT_NE( state().find( "B oif dr" ), std::string::npos );
   EXPECT_NE( tables->registerOifControl()->problem(), "" );
   EXPECT_EQ( Mox::Test::assertionText( [&] {
                 act( { "stop", "A" } );
              } ),
              "write outside the mapped region" );
   start();
   act( { "data", "A" } );
   act( { "stop", "A" } );
   EXPECT_EQ( state(), "A no-oif dr; B oif dr" );
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
