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
      hear( intf, group, { encoded( source, source == nullptr ) }, {} );
   }
   // A prune of the source from the group's shared tree, or of that tree.
   void pruneRpt( const char* intf, const char* source ) {
      hear( intf, kGroup, {}, { encoded( source, true ) } );
      family->router().handleTurnEnd();
   }
   static EncodedSource encoded( const char* source, bool rpt ) {
      return { .address = addr( source == nullptr ? "203.0.113.1" : source ),
               .wildcard = source == nullptr,
               .rpt = rpt };
   }
   void hear( const char* intf, const char* group, std::vector<EncodedSource> joins,
              std::vector<EncodedSource> prunes ) {
      PimJoinPrune body;
      for ( const InterfaceConfig& each : family->config().interfaces ) {
         if ( each.name == intfId( intf ) )
            body.upstreamNeighbor = each.addresses.front().address;
      }
      body.holdtime = holdtime;
      body.groups = { { .address = addr( group ),
                        .joins = std::move( joins ),
                        .prunes = std::move( prunes ) } };
      receive( intf, "192.0.2.9", pim( body ) );
   }
   template <class Body>
   static PimMessage pim( const Body& body ) {
      PimMessage message;
      message.body = body;
      return message;
   }
   void receive( const char* intf, const char* sender, const Message& message,
                 const char* destination = "224.0.0.13" ) {
      IpPacket packet;
      packet.source = addr( sender );
      packet.destination = addr( destination );
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
   void untilPublished() {
      do {
         real.advance( 0.05 );
         real.runPass();
         family->router().handleTurnEnd();
      } while ( !family->router().published() );
   }
   const Route* route( const char* group = kGroup ) const {
      return family->router().model().route( wcKey( group ) );
   }
   const Route* source( const char* text ) const {
      return family->router().model().route( sgKey( text, kGroup ) );
   }
   static bool forwards( const Route* of, const char* intf ) {
      const auto* record =
         of != nullptr ? of->routeIntf( intfId( intf ) ) : nullptr;
      return record != nullptr && record->forward();
   }

   Mox::Test::TempRoot root;
   uint16_t holdtime = 210;  // for joins and prunes
   // Less than a keepalive period since the boot.
   Mox::TestClock real{ 100.0 };
   AgentClock clock{ real };
   RouterCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   std::unique_ptr<FamilyInstance> family;
};

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

// Also the values that the writer does not mark by itself: join and prune states,
// their times, the upstream join state.
TEST_F( Family, TheTablesHoldWhatStandsInTheModel ) {
   adopted( with( "  require-hello: no\n",
                  "  require-hello: no\n  ssmFilter: .no-ssm-range\n" ) );
   const auto expectPublished = [this]( const char* after ) {
      SCOPED_TRACE( after );
      untilPublished();
      for ( const Route& route : family->router().model().route() ) {
         Tables::Route record;
         ASSERT_EQ(
            family->router().writer().tables()->route().find( route.key(), record ),
            Brane::lookupFound );
         EXPECT_EQ( record, Tables::doGetBraneRouteFromRoute( route ) );
         for ( const auto& intf : route.routeIntf() ) {
            Tables::Intf found;
            ASSERT_EQ( family->router().writer().tables()->routeIntf().find(
                          { route.key(), intf.intfId() }, found ),
                       Brane::lookupFound );
            EXPECT_EQ( found,
                       Tables::doGetBraneIntfFromRouteIntf( route.key(), intf ) );
         }
      }
   };
   join( "eth1" );
   expectPublished( "a join" );
   real.advance( 30 );
   struct Writes : Published::FamilyStatus::NotifieeConst {
      using NotifieeConst::onDownstream;
      void onDownstream( const Routing::Pim::RouteIntfKey& ) override { ++count; }
      int count = 0;
   } writes;
   writes.notifierIs( published().get() );
   join( "eth1" );
   EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) )->lastJoinReceived(),
              real.now() );
   expectPublished( "its refresh" );
   EXPECT_EQ( writes.count, 0 ) << "its timers are as long as before";
   hearJoin( "eth1", kGroup, "192.0.2.79" );
   real.advance( 0.05 );
   real.runPass();
   const Routing::Pim::RouteIntfKey heard{ sgKey( "192.0.2.79", kGroup ),
                                           intfId( "eth1" ) };
   EXPECT_TRUE( family->router().writer().tables()->routeIntf().has( heard ) )
      << "within a turn";
   EXPECT_TRUE( published()->downstream().has( heard ) ) << "before the state";
   join( "eth1", kGroup, "192.0.2.77" );
   expectPublished( "a join of a source that comes in by the shared tree, too" );
   pruneRpt( "eth1", "192.0.2.78" );
   expectPublished( "a prune from the shared tree" );
   pruneRpt( "eth1", nullptr );
   expectPublished( "a prune" );
   configIs( with( "198.51.100.1/24", "198.51.100.2/24" ) );
   expectPublished( "another address" );
   real.advance( 211 );
   real.runPass();
   expectPublished( "the end of all joins" );
   EXPECT_EQ( family->router().model().route().size(), 0u );
   EXPECT_EQ( published()->downstream().size(), 0u );
   published()->downstreamIs( { { wcKey( kGroup ), intfId( "eth1" ) }, 210 } );
   adopted();
   EXPECT_EQ( published()->downstream().size(), 0u ) << "no state goes with it";
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

// Registers wait for the reload like all messages, and come from any of the
// router's own addresses. The advertised table follows the file.
TEST_F( Family, RegistersAndAdvertisesAsTheConfigurationSays ) {
   start( std::string( kConfig ) +
          "  advertised:\n"
          "  - {source: 10.0.0.7, group: 239.1.2.3, rp: "
          "203.0.113.1}\n" );
   PimRegister sent;
   sent.source = addr( "198.51.100.7" );
   sent.group = addr( "239.1.2.3" );
   receive( "eth0", "198.51.101.1", pim( sent ), "203.0.113.1" );
   EXPECT_EQ( family->router().writer().registers()->registerOif().size(), 0u );
   untilAdopted();
   EXPECT_TRUE( family->router().writer().registers()->drDiscoveredSg().has(
      sgKey( "198.51.100.7", "239.1.2.3" ) ) );
   EXPECT_TRUE( family->router().writer().advertised()->coll().has(
      sgKey( "10.0.0.7", "239.1.2.3" ) ) );
   configIs( with( "198.51.100.1/24", "198.51.103.1/24" ) );
   EXPECT_EQ( family->router().writer().registers()->drDiscoveredSg().size(), 0u );
   EXPECT_EQ( family->router().writer().advertised()->coll().size(), 0u );
}

// Otherwise this router would take itself for the DR until the next hello, and
// forward beside the real one.
TEST_F( Family, NeighborsAreKnownAfterARestart ) {
   adopted();
   PimHello hello;
   hello.holdtime = 350;
   hello.drPriority = 7;
   hello.generationId = 0;
   hello.lanPruneDelay = LanPruneDelay{ true, 100, 4000 };
   receive( "eth1", "198.51.100.0", pim( hello ) );
   hello.drPriority = 0;
   receive( "eth2", "198.51.101.9", pim( hello ) );
   family->router().handleTurnEnd();
   auto dr = [&]( const char* intf ) {
      return family->router().model().pimStatus()->intf( intfId( intf ) )->iAmDr();
   };
   for ( int restart = 0; restart < 2; ++restart ) {
      EXPECT_FALSE( dr( "eth1" ) );
      start();
      EXPECT_FALSE( dr( "eth1" ) );
      EXPECT_TRUE( dr( "eth2" ) );
      untilAdopted();
      pass( 170 );
   }
   // The rest of its hold time, but no less than the time to its next hello.
   auto expectGoneAfter = [&]( double seconds ) {
      pass( seconds - 1 );
      EXPECT_FALSE( dr( "eth1" ) );
      pass( 2 );
      EXPECT_TRUE( dr( "eth1" ) ) << "nobody said hello since";
   };
   adopted();
   expectGoneAfter( 100 );
   start();
   EXPECT_TRUE( dr( "eth1" ) ) << "who has gone does not come back";
   untilAdopted();
   hello.drPriority = 7;
   receive( "eth1", "198.51.100.0", pim( hello ) );
   family->router().handleTurnEnd();
   family.reset();
   real.advance( 351 );
   adopted();
   expectGoneAfter( 5 );
   receive( "eth1", "198.51.100.0", pim( hello ) );
   family->router().handleTurnEnd();
   start( with( "198.51.100.1/24", "198.51.100.0/24" ) );
   EXPECT_TRUE( dr( "eth1" ) ) << "it is this router now";
}

// Messages wait during the reload, up to a limit.
TEST_F( Family, OnlySoManyMessagesWait ) {
   start();
   for ( size_t i = 0; i < VrfRouter::maxWaiting + 2; ++i ) join( "eth1" );
   EXPECT_EQ( counters.refusedCount( tooManyWaiting ), 2u );
}

}
}
