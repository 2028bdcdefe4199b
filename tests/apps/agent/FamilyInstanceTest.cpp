#include "apps/agent/FamilyInstance.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "apps/config/ConfigReader.h"
#include "export/Conversion.h"
#include "platform/loop/TestClock.h"
#include "tests/support/Damage.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::SparseMode::Route;

const char* const kConfig =
   "vrfs:\n"
   "- name: default\n"
   "  require-hello: no\n"
   "  maxRoutes: 100\n"
   "  maxRouteIntfs: 100\n"
   "  interfaces:\n"
   "  - {name: eth0, addresses: [192.0.2.1/24]}\n"
   "  - {name: eth1, addresses: [198.51.100.1/24, \"fe80::1/64\"]}\n"
   "  - {name: eth2, addresses: [198.51.101.1/24]}\n"
   "  rpf-routes:\n"
   "  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 192.0.2.254, backup: "
   "{interface: eth2, neighbor: 198.51.101.254}}\n"
   "  rps: [{address: 203.0.113.1}]\n"
   "  access-lists:\n"
   "  - {name: some, rules: [{action: permit, group: 233.252.0.0/24}]}\n"
   "  - name: most\n"
   "    rules:\n"
   "    - {action: deny, group: 239.7.2.0/24}\n"
   "    - {action: permit, group: 239.7.0.0/16}\n";

namespace Tables = Routing::Pim::SparseMode::Brane;

const char* const kGroup = "233.252.0.1";

class Family : public testing::Test {
 protected:
   void start( const std::string& config = kConfig ) {
      family.reset();
      family = std::make_unique<FamilyInstance>( Vantu::AddressFamily::ipv4,
                                                 parse( config ), manager, real,
                                                 clock, counters );
   }
   void adopted( const std::string& config = kConfig ) {
      start( config );
      untilAdopted();
   }
   void untilAdopted() {
      while ( !family->router().ready() ) real.runPass();
      family->router().adopt();
      family->router().handleTurnEnd();
   }
   static VrfConfig parse( std::string text ) {
      return parseConfig( text, "test" ).vrfs[0];
   }
   // The configuration with one text replaced.
   static std::string with( const std::string& text, const std::string& by,
                            std::string in = kConfig ) {
      size_t at = in.find( text );
      EXPECT_NE( at, std::string::npos ) << text;
      return in.replace( at, text.size(), by );
   }
   void configIs( const std::string& text ) {
      family->configIs( parse( text ) );
      family->router().handleTurnEnd();
   }
   // A join of the group, or of one of its sources, by a neighbour on the
   // interface.
   void join( const char* intf, const char* group = kGroup,
              const char* source = nullptr ) {
      hearJoin( intf, group, source );
      family->router().handleTurnEnd();
   }
   // As join(), in the middle of a turn.
   void hearJoin( const char* intf, const char* group, const char* source ) {
      PimJoinPrune body;
      for ( const InterfaceConfig& each : family->config().interfaces ) {
         if ( each.name == intfId( intf ) )
            body.upstreamNeighbor = each.addresses.front().address;
      }
      body.holdtime = 210;
      const bool wc = source == nullptr;
      const EncodedSource joined{ .address = addr( wc ? "203.0.113.1" : source ),
                                  .wildcard = wc,
                                  .rpt = wc };
      body.groups = {
         { .address = addr( group ), .joins = { joined }, .prunes = {} } };
      IpPacket packet;
      packet.source = addr( "192.0.2.9" );
      packet.destination = addr( "224.0.0.13" );
      PimMessage message;
      message.body = body;
      family->router().receive( intfId( intf ), packet, message );
   }
   Mox::Ptr<Published::FamilyStatus> published() {
      return Published::FamilyStatus::mount(
         manager,
         Published::FamilyStatus::mountPath( family->family(),
                                             family->config().name ),
         Brane::tableWriter );
   }
   void pass( double seconds ) {
      real.runUntil( real.now() + seconds );
      family->router().handleTurnEnd();
   }
   Mox::Test::TempRoot root;
   // Less than a keepalive period since the boot.
   Mox::TestClock real{ 100.0 };
   AgentClock clock{ real };
   RouterCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   std::unique_ptr<FamilyInstance> family;
};

TEST_F( Family, TablesOfFormerBootsAreTold ) {
   adopted();
   const std::string path =
      root.path() + "/" + family->router().writer().tables()->name();
   family.reset();
   Brane::WriterOptions options;
   options.bootId = "another";
   Brane::TableWriter( path + "/route", Tables::RouteTable::makeLayout(), 100,
                       options );
   start();
   EXPECT_EQ(
      family->mountNotes(),
      std::vector<std::string>{ "vrf default ipv4: 1 tables are from before a "
                                "reboot: made anew, empty" } );
}

// A review of the tables may be due between an engine's change and the end of the
// turn.
TEST_F( Family, NoRouteIsPublishedBeforeItsForwarding ) {
   adopted();
   join( "eth1" );
   real.advance( 0.01 );
   hearJoin( "eth2", kGroup, "192.0.2.77" );
   real.runPass();
   const Routing::Pim::RouteKey key = sgKey( "192.0.2.77", kGroup );
   ASSERT_TRUE( family->router().writer().tables()->route().has( key ) );
   EXPECT_TRUE( published()->downstream().has( { key, intfId( "eth2" ) } ) )
      << "its timers before the state";
   for ( const char* intf : { "eth1", "eth2" } ) {
      Tables::Intf record;
      ASSERT_EQ( family->router().writer().tables()->routeIntf().find(
                    { key, intfId( intf ) }, record ),
                 Brane::lookupFound );
      EXPECT_TRUE( record.forward ) << intf;
   }
}

// An RP itself needs no path to the RP: its routes do not count as unresolved,
// whichever of its addresses is the RP.
TEST_F( Family, RoutesThatLackAWayAreCounted ) {
   const std::string own =
      with( "[198.51.101.1/24]", "[198.51.101.1/24, 203.0.113.1/24]",
            with( "prefix: 0.0.0.0/0", "prefix: 203.0.113.0/24" ) );
   adopted( own );
   join( "eth1" );
   join( "eth1", kGroup, "10.9.9.9" );
   join( "eth2", kGroup, "10.9.9.8" );
   pass( 1 );
   EXPECT_EQ( family->router().writer().tables()->unresolvedRoutes(), 2u );
   configIs( kConfig );
   pass( 1 );
   EXPECT_EQ( family->router().writer().tables()->unresolvedRoutes(), 0u );
   // A damaged count does not stop the others.
   Mox::Test::breakStamp( root.path() + "/" +
                             family->router().writer().tables()->name() +
                             "/routeCounter",
                          Tables::RouteCounterKey{ Tables::toBeDeleted, 0 } );
   configIs( own );
   pass( 1 );
   Tables::RouteCounter seen;
   EXPECT_EQ( family->router().writer().tables()->routeCounter().find(
                 { Tables::toBeDeleted, 0 }, seen ),
              Brane::lookupDamaged );
   EXPECT_EQ( family->router().writer().tables()->unresolvedRoutes(), 2u );
}

// More changes than forwarding can follow in time: the tables follow late, but they
// do.
TEST_F( Family, AFloodHoldsTheTablesUpForAWhileOnly ) {
   adopted( with( "maxRoutes: 100", "maxRoutes: 10000" ) );
   real.stepIs( 0.006 );  // two routes a slice
   const double flooded = real.now();
   for ( int i = 0; family->router().writer().tables()->route().size() == 0; ++i ) {
      ASSERT_LT( real.now(), flooded + 2 * VrfRouter::maxBehind );
      for ( int source = 1; source <= 10; ++source )
         hearJoin( "eth2", kGroup, fmt::format( "10.0.{}.{}", i, source ).c_str() );
      real.runPass();
      family->router().handleTurnEnd();
   }
   EXPECT_FALSE( family->router().published() );
}

// As when the system has no space: the tables cannot have their files. Nothing but time
// tells of the end of that.
TEST_F( Family, WhatATableRefusesIsTriedAgain ) {
   adopted();
   const std::string at =
      root.path() + "/routing/pim/sparsemode/agentstatus/default/";
   const char* const names[] = { "downstream", "neighbor" };
   for ( const std::string name : names ) {
      std::filesystem::rename( at + name, at + name + "-" );
      std::filesystem::create_directory( at + name );
   }
   join( "eth1" );
   join( "eth2" );
   IpPacket packet;
   packet.source = addr( "192.0.2.9" );
   packet.destination = addr( "224.0.0.13" );
   PimMessage hello;
   hello.body = PimHello();
   family->router().receive( intfId( "eth0" ), packet, hello );
   pass( 2.0 );
   EXPECT_EQ( published()->downstream().size(), 0u );
   for ( const std::string name : names ) {
      std::filesystem::remove( at + name );
      std::filesystem::rename( at + name + "-", at + name );
   }
   pass( 1.1 );
   EXPECT_EQ( published()->downstream().size(), 2u );
   EXPECT_EQ( published()->neighbor().size(), 1u );
}

TEST_F( Family, RetiringRemovesTheTables ) {
   adopted();
   std::vector<std::string> files;
   for ( const std::string& file :
         { family->router().writer().tables()->name() + "/route",
           family->router().writer().registers()->name() + "/registerOif",
           family->router().writer().advertised()->name() + "/coll",
           published()->name() + "/interface" } )
      files.push_back( root.path() + "/" + file );
   for ( const auto& file : files ) EXPECT_TRUE( std::filesystem::exists( file ) );
   family->router().retire();
   family.reset();
   for ( const auto& file : files ) EXPECT_FALSE( std::filesystem::exists( file ) );
}

// Messages wait during the reload, up to a limit.
TEST_F( Family, OnlySoManyMessagesWait ) {
   start();
   for ( size_t i = 0; i < VrfRouter::maxWaiting + 2; ++i ) join( "eth1" );
   EXPECT_EQ( counters.refusedCount( tooManyWaiting ), 2u );
}

}
}
