#include "apps/agent/FamilyInstance.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/agent/config/ConfigReader.h"
#include "apps/published/Incoming.h"
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
   "  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 192.0.2.254}\n"
   "  rps:\n"
   "  - {address: 203.0.113.1}\n";

class Family : public testing::Test {
 protected:
   void start( const std::string& config = kConfig ) {
      family.reset();
      family = std::make_unique<FamilyInstance>( Vantu::AddressFamily::ipv4,
                                                 parse( config ), manager, real,
                                                 clock, counters );
   }
   void untilAdopted() {
      while ( !family->ready() ) real.runPass();
      family->adopt();
      family->handleTurnEnd();
   }
   static VrfConfig parse( std::string text ) {
      return parseConfig( text, "test" ).vrfs[0];
   }
   // The configuration with one text replaced.
   static std::string with( const std::string& text, const std::string& by ) {
      std::string out = kConfig;
      size_t at = out.find( text );
      EXPECT_NE( at, std::string::npos ) << text;
      return out.replace( at, text.size(), by );
   }
   void configIs( const std::string& text ) {
      family->configIs( parse( text ) );
      family->handleTurnEnd();
   }
   // A join from a neighbour on the interface: for the group, or for a source of it.
   void join( const char* intf, const char* group = "233.252.0.1",
              const char* source = nullptr ) {
      hearJoin( intf, group, source );
      family->handleTurnEnd();
   }
   // The same in the middle of a turn.
   void hearJoin( const char* intf, const char* group, const char* source ) {
      hear( intf, group, { encoded( source, source == nullptr ) }, {} );
   }
   // A prune of the source from the group's shared tree.
   void pruneRpt( const char* intf, const char* group, const char* source ) {
      hear( intf, group, {}, { encoded( source, true ) } );
      family->handleTurnEnd();
   }
   static EncodedSource encoded( const char* source, bool rpt ) {
      EncodedSource out;
      out.address = addr( source == nullptr ? "203.0.113.1" : source );
      out.maskLength = 32;
      out.sparse = true;
      out.wildcard = source == nullptr;
      out.rpt = rpt;
      return out;
   }
   void hear( const char* intf, const char* group, std::vector<EncodedSource> joins,
              std::vector<EncodedSource> prunes ) {
      PimJoinPrune body;
      for ( const InterfaceConfig& each : family->config().interfaces ) {
         if ( each.name == intfId( intf ) )
            body.upstreamNeighbor = each.addresses.front().address;
      }
      JoinPruneGroup entry;
      entry.address = addr( group );
      entry.maskLength = 32;
      entry.joins = std::move( joins );
      entry.prunes = std::move( prunes );
      body.holdtime = 210;
      body.groups = { entry };
      IpPacket packet;
      packet.source = addr( "192.0.2.9" );
      packet.destination = addr( "224.0.0.13" );
      PimMessage message;
      message.body = body;
      family->receive( intfId( intf ), packet, message );
   }
   const Route* route( const char* group = "233.252.0.1" ) const {
      return family->model().route( wcKey( group ) );
   }

   Mox::Test::TempRoot root;
   Mox::TestClock real{
      100.0 };  // a keepalive period has not passed since the boot
   AgentClock clock{ real };
   AgentCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   std::unique_ptr<FamilyInstance> family;
};

TEST_F( Family, MessagesWaitForTheReload ) {
   start();
   join( "eth1" );
   EXPECT_EQ( route(), nullptr );
   untilAdopted();
   ASSERT_NE( route(), nullptr );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth1" ) )->forward() );

   start();
   for ( size_t i = 0; i < FamilyInstance::maxWaiting + 2; ++i ) join( "eth1" );
   EXPECT_EQ( counters.refusedCount( tooManyWaiting ), 2u );
}

// A review of the tables may be due between an engine's change and the end of the turn.
TEST_F( Family, NoRouteIsPublishedBeforeItsForwarding ) {
   start();
   untilAdopted();
   join( "eth1" );
   real.advance( 0.01 );
   hearJoin( "eth2", "233.252.0.1", "192.0.2.77" );
   real.runPass();
   const Routing::Pim::RouteKey key = sgKey( "192.0.2.77", "233.252.0.1" );
   ASSERT_TRUE( family->tables().route().has( key ) );
   for ( const char* intf : { "eth1", "eth2" } ) {
      namespace Tables = Routing::Pim::SparseMode::Brane;
      Tables::Intf record;
      ASSERT_EQ(
         family->tables().routeIntf().find( { key, intfId( intf ) }, record ),
         Brane::lookupFound )
         << intf;
      EXPECT_TRUE( record.forward ) << intf;
   }
}

// An RP has no way to itself, by any of its addresses, and lacks none.
TEST_F( Family, OnlyRoutesThatLackAWayCountAsUnresolved ) {
   namespace Tables = Routing::Pim::SparseMode::Brane;
   std::string config =
      with( "[198.51.101.1/24]", "[198.51.101.1/24, 203.0.113.1/24]" );
   const size_t routes = config.find( "  rpf-routes:" );
   config.erase( routes, config.find( "  rps:" ) - routes );
   start( config );
   untilAdopted();
   join( "eth1" );
   join( "eth1", "233.252.0.1", "10.9.9.9" );
   real.advance( 2 );
   real.runPass();
   Tables::RouteCounter unresolved;
   ASSERT_EQ(
      family->tables().routeCounter().find( { Tables::unresolved, 0 }, unresolved ),
      Brane::lookupFound );
   EXPECT_EQ( unresolved.count, 1u );
}

// Also what the writer does not mark by itself: join and prune states, their times, the
// upstream join state.
TEST_F( Family, TheTablesHoldWhatStandsInTheModel ) {
   namespace Tables = Routing::Pim::SparseMode::Brane;
   start( with( "  require-hello: no\n",
                "  require-hello: no\n  ssmFilter: .no-ssm-range\n" ) );
   untilAdopted();
   const auto expectPublished = [this]( const char* after ) {
      SCOPED_TRACE( after );
      do {
         real.advance( 0.05 );
         real.runPass();
         family->handleTurnEnd();
      } while ( !family->published() );
      for ( const Route& route : family->model().route() ) {
         Tables::Route record;
         ASSERT_EQ( family->tables().route().find( route.key(), record ),
                    Brane::lookupFound );
         EXPECT_EQ( record, Tables::doGetBraneRouteFromRoute( route ) );
         for ( const auto& intf : route.routeIntf() ) {
            Tables::Intf found;
            ASSERT_EQ( family->tables().routeIntf().find(
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
   join( "eth1" );
   EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) )->lastJoinReceived(),
              real.now() );
   expectPublished( "its refresh" );
   join( "eth1", "233.252.0.1", "192.0.2.77" );
   expectPublished( "a join of a source that comes in by the shared tree, too" );
   pruneRpt( "eth1", "233.252.0.1", "192.0.2.78" );
   expectPublished( "a prune from the shared tree" );
   hear( "eth1", "233.252.0.1", {}, { encoded( nullptr, true ) } );
   family->handleTurnEnd();
   expectPublished( "a prune" );
   configIs( with( "198.51.100.1/24", "198.51.100.2/24" ) );
   expectPublished( "another address" );
   real.advance( 211 );
   real.runPass();
   expectPublished( "the end of all joins" );
   EXPECT_EQ( family->model().route().size(), 0u );
}

// Changes beyond what forwarding follows in time: the tables follow late, not never.
TEST_F( Family, AFloodHoldsTheTablesUpForAWhileOnly ) {
   start( with( "maxRoutes: 100", "maxRoutes: 10000" ) );
   untilAdopted();
   real.stepIs( 0.006 );  // two routes a slice
   const double flooded = real.now();
   for ( int i = 0; family->tables().route().size() == 0; ++i ) {
      ASSERT_LT( real.now(), flooded + 2 * FamilyInstance::maxBehind );
      for ( int source = 1; source <= 10; ++source )
         hearJoin( "eth2", "233.252.0.1",
                   fmt::format( "10.0.{}.{}", i, source ).c_str() );
      real.runPass();
      family->handleTurnEnd();
   }
   EXPECT_FALSE( family->published() );
}

TEST_F( Family, RoutesFollowTheConfiguration ) {
   start();
   untilAdopted();
   join( "eth1" );
   join( "eth0" );
   EXPECT_EQ( route()->rpf().intfId, intfId( "eth0" ) );
   EXPECT_FALSE( route()->routeIntf( intfId( "eth0" ) )->forward() );

   configIs( with( "interface: eth0, neighbor: 192.0.2.254",
                   "interface: eth1, neighbor: 198.51.100.254" ) );
   EXPECT_EQ( route()->rpf().intfId, intfId( "eth1" ) );
   EXPECT_EQ( route()->prevRpf().intfId, intfId( "eth0" ) );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth0" ) )->forward() );
   EXPECT_FALSE( route()->routeIntf( intfId( "eth1" ) )->forward() );

   configIs( with( "203.0.113.1", "198.51.100.77" ) );
   EXPECT_EQ( route()->umh()->rp(), addr( "198.51.100.77" ) );
   EXPECT_TRUE( route()->rpfAttached() );
}

TEST_F( Family, AnInterfaceGoesWithItsState ) {
   start();
   untilAdopted();
   join( "eth1" );
   join( "eth0" );
   join( "eth1", "233.252.0.2" );
   configIs(
      with( "  - {name: eth1, addresses: [198.51.100.1/24, \"fe80::1/64\"]}\n",
            "  - {name: eth1, addresses: [\"fe80::1/64\"]}\n" ) );
   ASSERT_NE( route(), nullptr );
   EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) ), nullptr );
   EXPECT_EQ( route( "233.252.0.2" ), nullptr );
   EXPECT_EQ( family->model().pimStatus()->intf( intfId( "eth1" ) ), nullptr );
   join( "eth1" );
   EXPECT_EQ( counters.refusedCount( noAddress ), 1u );

   configIs( with( "198.51.100.1/24", "198.51.100.2/24" ) );
   EXPECT_EQ( family->model().pimStatus()->intf( intfId( "eth1" ) )->addr().address,
              addr( "198.51.100.2" ) );
}

// The default range, none, and a list; what stands when the range changes ends.
TEST_F( Family, SourceSpecificGroupsGetNoSharedTree ) {
   start();
   untilAdopted();
   join( "eth1", "232.1.1.1" );
   EXPECT_EQ( route( "232.1.1.1" ), nullptr );
   EXPECT_EQ( counters.refusedCount( ssmGroup ), 1u );
   join( "eth1", "232.1.1.1", "192.0.2.77" );
   EXPECT_NE( family->model().route( sgKey( "192.0.2.77", "232.1.1.1" ) ),
              nullptr );

   configIs(
      with( "  require-hello", "  ssmFilter: .no-ssm-range\n  require-hello" ) );
   join( "eth1", "232.1.1.1" );
   EXPECT_NE( route( "232.1.1.1" ), nullptr );
   join( "eth1", "239.7.1.1" );

   configIs( with( "  require-hello",
                   "  ssmFilter: ours\n"
                   "  access-lists:\n"
                   "  - name: ours\n"
                   "    rules:\n"
                   "    - {action: deny, group: 239.7.2.0/24}\n"
                   "    - {action: permit, group: 239.7.0.0/16}\n"
                   "  require-hello" ) );
   EXPECT_EQ( route( "239.7.1.1" ), nullptr );
   EXPECT_NE( route( "232.1.1.1" ), nullptr );
   join( "eth1", "239.7.2.1" );
   EXPECT_NE( route( "239.7.2.1" ), nullptr );
   join( "eth1", "239.7.3.1" );
   EXPECT_EQ( counters.refusedCount( ssmGroup ), 2u );
}

// An RP that only a join named is not in the tables; the path to it is, and stays.
TEST_F( Family, AReloadKeepsThePathToAJoinedRp ) {
   const std::string config = with( "  rps:\n  - {address: 203.0.113.1}\n", "" );
   start( config );
   untilAdopted();
   join( "eth1" );
   const Routing::Pim::Rpf path = route()->rpf();
   EXPECT_EQ( path.intfId, intfId( "eth0" ) );
   while ( !family->published() ) {
      real.nowIs( real.now() + 0.05 );
      real.runPass();
   }
   std::string other = config;
   other.replace( other.find( "192.0.2.254" ), 11, "192.0.2.253" );
   start( other );
   untilAdopted();
   EXPECT_EQ( route()->rpf(), path );
   configIs( other );
   EXPECT_EQ( route()->rpf(), path );
}

TEST_F( Family, BackupPathsStandWhereTheFilterEnablesThem ) {
   const std::string backup =
      "neighbor: 192.0.2.254, backup: {interface: eth2, "
      "neighbor: 198.51.101.254, metric: 7}";
   start( with( "neighbor: 192.0.2.254", backup ) );
   untilAdopted();
   join( "eth1" );
   EXPECT_EQ( route()->umhFrr(), nullptr ) << "no filter enables it";
   std::string enabled = with( "neighbor: 192.0.2.254", backup );
   enabled.replace( enabled.find( "  require-hello" ), 0,
                    "  frrFilter: fast\n"
                    "  access-lists:\n"
                    "  - name: fast\n"
                    "    rules: [{action: permit, group: 233.252.0.0/24}]\n" );
   configIs( enabled );
   EXPECT_EQ( route()->rpfFrr(), rpfBy( "eth2", "198.51.101.254", 1, 7 ) );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth1" ) )->fastForward() );
   join( "eth1", "233.252.1.1" );
   EXPECT_EQ( route( "233.252.1.1" )->umhFrr(), nullptr );
   configIs( kConfig );
   EXPECT_EQ( route()->umhFrr(), nullptr );
   EXPECT_FALSE( route()->routeIntf( intfId( "eth1" ) )->fastForward() );
}

TEST_F( Family, RetiringRemovesTheTables ) {
   start();
   untilAdopted();
   std::filesystem::path files = root.path() + "/" + family->tables().name();
   ASSERT_TRUE( std::filesystem::exists( files / "route" ) );
   std::filesystem::path others[] = {
      root.path() + "/" + family->registers().name() + "/registerOif",
      root.path() + "/" + family->advertised().name() + "/coll",
      root.path() + "/" +
         Published::FamilyStatus::mountPath( family->family(),
                                             family->config().name ) +
         "/interface" };
   for ( const auto& file : others ) EXPECT_TRUE( std::filesystem::exists( file ) );
   family->retire();
   for ( const auto& file : others )
      EXPECT_FALSE( std::filesystem::exists( file ) );
   EXPECT_FALSE( std::filesystem::exists( files / "route" ) );
   family.reset();
   EXPECT_FALSE( std::filesystem::exists( files / "route" ) );
}

// Registers wait for the reload like all messages, and come from any of the router's
// own addresses; what is advertised follows the file.
TEST_F( Family, RegistersAndAdvertisesAsTheConfigurationSays ) {
   const std::string listed = std::string( kConfig ) +
                              "  advertised:\n"
                              "  - {source: 10.0.0.7, group: 239.1.2.3, rp: "
                              "203.0.113.1}\n";
   start( listed );
   PimMessage message;
   message.type = PimType::registerData;
   PimRegister sent;
   sent.source = addr( "198.51.100.7" );
   sent.group = addr( "239.1.2.3" );
   message.body = sent;
   IpPacket packet;
   packet.source = addr( "198.51.101.1" );
   packet.destination = addr( "203.0.113.1" );
   family->receive( intfId( "eth0" ), packet, message );
   EXPECT_EQ( family->registers().registerOif().size(), 0u );
   untilAdopted();
   EXPECT_TRUE( family->registers().drDiscoveredSg().has(
      sgKey( "198.51.100.7", "239.1.2.3" ) ) );
   EXPECT_TRUE(
      family->advertised().coll().has( sgKey( "10.0.0.7", "239.1.2.3" ) ) );
   configIs( with( "198.51.100.1/24", "198.51.103.1/24" ) );
   EXPECT_EQ( family->registers().drDiscoveredSg().size(), 0u );
   EXPECT_EQ( family->advertised().coll().size(), 0u );
}

// What was forwarding goes on: on an (S,G) route also where only the (*,G) record
// stands behind it.
TEST_F( Family, AReloadKeepsForwarding ) {
   start();
   untilAdopted();
   join( "eth1" );
   join( "eth2", "233.252.0.1", "192.0.2.77" );
   auto forwards = [&]( const char* intf ) {
      const Route* source =
         family->model().route( sgKey( "192.0.2.77", "233.252.0.1" ) );
      const auto* record =
         source != nullptr ? source->routeIntf( intfId( intf ) ) : nullptr;
      return record != nullptr && record->forward();
   };
   ASSERT_TRUE( forwards( "eth1" ) && forwards( "eth2" ) );
   while ( !family->published() ) {
      real.nowIs( real.now() + 0.05 );
      real.runPass();
   }
   start();
   while ( !family->ready() ) real.runPass();
   EXPECT_TRUE( forwards( "eth1" ) && forwards( "eth2" ) );
   const auto& sourcesBy = family->counting().sources().sourcesByGroupCount();
   const auto& groupsBy = family->counting().groups().groupsBySourceCount();
   ASSERT_EQ( sourcesBy.count( 1 ) + groupsBy.count( 1 ), 2u );
   EXPECT_EQ( sourcesBy.at( 1 ).addr().size(), 2u );  // the (*,G) route's too
   EXPECT_EQ( groupsBy.at( 1 ).addr().size(), 1u );
   family->adopt();
   EXPECT_TRUE( forwards( "eth1" ) && forwards( "eth2" ) );
   family->handleTurnEnd();
   EXPECT_TRUE( forwards( "eth1" ) && forwards( "eth2" ) );
   // For the default hold time, unless refreshed.
   real.nowIs( real.now() + JoinPruneEngine::defaultHoldtime - 1 );
   real.runPass();
   EXPECT_NE( route(), nullptr );
   real.nowIs( real.now() + 1 );
   real.runPass();
   family->handleTurnEnd();
   EXPECT_EQ( family->model().route().size(), 0u );
   EXPECT_TRUE( sourcesBy.empty() && groupsBy.empty() );
}

// What hosts and other routers say reaches the outgoing list.
TEST_F( Family, MembersAndAssertsDecideWhatForwards ) {
   start();
   untilAdopted();
   MembershipReport report;
   report.records = { { isExclude, addr( "233.252.0.1" ), {} } };
   auto receive = [&]( Message message, const char* sender ) {
      IpPacket packet;
      packet.source = addr( sender );
      packet.destination = addr( "224.0.0.13" );
      family->receive( intfId( "eth1" ), packet, message );
      family->handleTurnEnd();
   };
   auto forwards = [&]( const char* source = nullptr ) {
      const Route* of =
         source == nullptr
            ? route()
            : family->model().route( sgKey( source, "233.252.0.1" ) );
      return of != nullptr && of->routeIntf( intfId( "eth1" ) ) != nullptr &&
             of->routeIntf( intfId( "eth1" ) )->forward();
   };
   receive( MembershipMessage( report ), "198.51.100.7" );
   EXPECT_TRUE( forwards() );
   join( "eth2", "233.252.0.1", "192.0.2.77" );
   EXPECT_TRUE( forwards( "192.0.2.77" ) );

   PimAssert lost;
   lost.group = addr( "233.252.0.1" );
   lost.maskLength = 32;
   lost.source = addr( "192.0.2.77" );
   PimMessage message;
   message.body = lost;
   receive( message, "198.51.100.9" );
   EXPECT_TRUE( forwards() ) << "an assert of the source's tree is not the group's";
   EXPECT_FALSE( forwards( "192.0.2.77" ) );
   // With its source the message is one to the (S,G) machine first.
   lost.rptBit = true;
   message.body = lost;
   receive( message, "198.51.100.9" );
   EXPECT_TRUE( forwards() );
   lost.source = addr( "0.0.0.0" );
   message.body = lost;
   receive( message, "198.51.100.9" );
   EXPECT_FALSE( forwards() );
   real.runUntil( real.now() + 181 );
   family->handleTurnEnd();
   EXPECT_TRUE( forwards() );
   EXPECT_TRUE( forwards( "192.0.2.77" ) );

   // A new process finds both as they were.
   receive( message, "198.51.100.9" );
   real.runUntil( real.now() + 1 );
   start();
   untilAdopted();
   EXPECT_FALSE( forwards() );
   EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) )->assertWinner(),
              addr( "198.51.100.9" ) );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth1" ) )->localReceiverInclude() );
   real.runUntil( real.now() + 181 );
   family->handleTurnEnd();
   EXPECT_TRUE( forwards() );
}

// Else this router would think itself the DR until the next hello, and forward beside
// the one that is.
TEST_F( Family, NeighborsAreKnownAfterARestart ) {
   start();
   untilAdopted();
   IpPacket packet;
   packet.source = addr( "198.51.100.9" );
   packet.destination = addr( "224.0.0.13" );
   PimHello hello;
   hello.holdtime = 0xffff;
   hello.drPriority = 7;
   hello.generationId = 0;
   hello.lanPruneDelay = LanPruneDelay{ true, 100, 4000 };
   PimMessage message;
   message.body = hello;
   family->receive( intfId( "eth1" ), packet, message );
   family->handleTurnEnd();
   auto dr = [&]( const char* intf ) {
      return family->model().pimStatus()->intf( intfId( intf ) )->iAmDr();
   };
   EXPECT_FALSE( dr( "eth1" ) );
   for ( int restart = 0; restart < 2; ++restart ) {
      start();
      EXPECT_FALSE( dr( "eth1" ) );
      EXPECT_TRUE( dr( "eth2" ) );
      untilAdopted();
      EXPECT_FALSE( dr( "eth1" ) );
   }
   real.runUntil( real.now() + 104 );
   EXPECT_FALSE( dr( "eth1" ) );
   real.runUntil( real.now() + 2 );
   family->handleTurnEnd();
   EXPECT_TRUE( dr( "eth1" ) ) << "nobody said hello since";
   start();
   EXPECT_TRUE( dr( "eth1" ) ) << "who has gone does not come back";
}

// A source on a link is known from the packets that the forwarding process tells of.
class Sources : public Family {
 protected:
   Sources() { startWith( kConfig ); }

   void startWith( const std::string& config ) {
      start( config );
      while ( !family->ready() ) real.runPass();
      adopt();
   }
   void adopt() {
      family->adopt();
      family->handleTurnEnd();
   }
   void upcall( const char* source, const char* intf,
                Published::UpcallKind kind = Published::noCacheUpcall,
                double age = 0.0 ) {
      mfib->upcallIs( { { sgKey( source, kGroup ), intfId( intf ) },
                        kind,
                        1,
                        real.now() - age } );
      exchange();
   }
   void packets( const char* source, uint64_t count ) {
      mfib->cacheIs(
         { sgKey( source, kGroup ), count, count * 100, 2, real.now() } );
      exchange();
   }
   void exchange() {
      kernelSide.dispatch();
      real.runUntil( real.now() + 0.01 );
      manager.dispatch();
      family->handleTurnEnd();
   }
   const Route* source( const char* text ) const {
      return family->model().route( sgKey( text, kGroup ) );
   }

   static constexpr const char* kGroup = "233.252.0.1";
   Corvex::EntityManager kernelSide{ real, nullptr, root.path() };
   Mox::Ptr<Published::MfibStatus> mfib = Published::MfibStatus::mount(
      kernelSide,
      Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                        L3::VrfName( "default" ) ),
      Brane::tableWriter, 100 );
};

TEST_F( Sources, LiveWhileTheySend ) {
   upcall( "198.51.100.7", "eth2" );
   upcall( "203.0.113.77", "eth1" );
   EXPECT_EQ( family->model().route().size(), 0u )
      << "from another link, or behind another router";
   upcall( "198.51.100.7", "eth1" );
   ASSERT_NE( source( "198.51.100.7" ), nullptr );
   EXPECT_TRUE( source( "198.51.100.7" )->spTree() );
   EXPECT_TRUE( source( "198.51.100.7" )->directlyConnected() );
   EXPECT_EQ( source( "198.51.100.7" )->iif(), intfId( "eth1" ) );
   join( "eth2" );
   EXPECT_TRUE(
      source( "198.51.100.7" )->routeIntf( intfId( "eth2" ) )->forward() );

   real.runUntil( real.now() + 200 );
   packets( "198.51.100.7", 5 );
   EXPECT_EQ( source( "198.51.100.7" )->kernelStats(),
              ( Routing::Pim::PimKernelStats{ 5, 500, 2 } ) );
   real.runUntil( real.now() + 209 );
   EXPECT_NE( source( "198.51.100.7" ), nullptr );
   real.runUntil( real.now() + 2 );
   EXPECT_EQ( source( "198.51.100.7" ), nullptr );
   packets( "198.51.100.7", 6 );
   EXPECT_EQ( source( "198.51.100.7" ), nullptr ) << "counters make no state";
}

// A route that a join made before has an entry in the kernel, and no upcall.
TEST_F( Sources, OfJoinedRoutesAreKnownByTheCounters ) {
   join( "eth2", kGroup, "198.51.100.7" );
   join( "eth2", kGroup, "203.0.113.77" );
   auto silent = [&]( const char* text ) { return source( text )->katExpired(); };
   mfib->cacheIs( { sgKey( "198.51.100.7", kGroup ), 0, 0, 0, 0.0 } );
   exchange();
   EXPECT_TRUE( silent( "198.51.100.7" ) ) << "it has never sent";
   packets( "198.51.100.7", 1 );
   packets( "203.0.113.77", 1 );
   EXPECT_FALSE( silent( "198.51.100.7" ) );
   EXPECT_TRUE( silent( "203.0.113.77" ) ) << "it is behind another router";
   real.runUntil( real.now() + 209 );
   EXPECT_FALSE( silent( "198.51.100.7" ) );
   join( "eth2", kGroup, "198.51.100.7" );
   real.runUntil( real.now() + 2 );
   EXPECT_TRUE( silent( "198.51.100.7" ) );
}

// A prune from the shared tree makes the route, and an entry in the kernel: packets that
// come in by the source's link are not to be missed there.
TEST_F( Sources, OfPrunedRoutesAreKnownByTheCounters ) {
   join( "eth2" );
   pruneRpt( "eth2", kGroup, "198.51.100.7" );
   ASSERT_NE( source( "198.51.100.7" ), nullptr );
   EXPECT_FALSE( source( "198.51.100.7" )->spTree() );
   EXPECT_EQ( Published::incomingIntf( *source( "198.51.100.7" ) ),
              intfId( "eth1" ) );
   packets( "198.51.100.7", 1 );
   EXPECT_TRUE( source( "198.51.100.7" )->spTree() );
}

TEST_F( Sources, AreTakenUpAfterARestart ) {
   upcall( "198.51.100.7", "eth1" );
   upcall( "198.51.101.9", "eth2" );
   real.runUntil( real.now() + 1 );
   // eth2's subnet is another now: the second source is not on it any more.
   startWith( with( "198.51.101.1/24", "198.51.102.1/24" ) );
   EXPECT_NE( source( "198.51.100.7" ), nullptr );
   EXPECT_EQ( source( "198.51.101.9" ), nullptr );
   real.runUntil( real.now() + 209 );
   EXPECT_NE( source( "198.51.100.7" ), nullptr );
   real.runUntil( real.now() + 2 );
   EXPECT_EQ( source( "198.51.100.7" ), nullptr );
   // Upcalls of long ago tell nothing, one of a while ago of the rest of its time.
   startWith( kConfig );
   EXPECT_EQ( source( "198.51.100.7" ), nullptr );
   upcall( "198.51.100.8", "eth1", Published::noCacheUpcall, 200 );
   EXPECT_NE( source( "198.51.100.8" ), nullptr );
   real.runUntil( real.now() + 9 );
   EXPECT_NE( source( "198.51.100.8" ), nullptr );
   real.runUntil( real.now() + 2 );
   EXPECT_EQ( source( "198.51.100.8" ), nullptr );
   configIs( kConfig );
}

TEST_F( Sources, ThatShowUpOnTheWrongSideWinAsserts ) {
   join( "eth1", kGroup, "203.0.113.77" );
   auto record = [&] {
      return source( "203.0.113.77" )->routeIntf( intfId( "eth1" ) );
   };
   upcall( "203.0.113.77", "eth2", Published::wrongVifUpcall );
   EXPECT_EQ( record()->assertInfo().assertState,
              Routing::Pim::SparseMode::assertNoInfo );
   upcall( "203.0.113.77", "eth1", Published::wrongVifUpcall, 4.0 );
   EXPECT_EQ( record()->assertInfo().assertState,
              Routing::Pim::SparseMode::assertNoInfo )
      << "it was there before";
   upcall( "203.0.113.77", "eth1", Published::wrongVifUpcall );
   EXPECT_EQ( record()->assertInfo().assertState,
              Routing::Pim::SparseMode::iAmAssertWinner );
}

TEST_F( Sources, BeyondTheLimitOfRoutesAreRefused ) {
   startWith( with( "maxRoutes: 100", "maxRoutes: 2" ) );
   join( "eth2", "233.252.0.2" );
   upcall( "198.51.100.7", "eth1" );
   upcall( "198.51.100.8", "eth1" );
   upcall( "198.51.100.7", "eth1" );
   join( "eth2", "233.252.0.3" );
   EXPECT_EQ( family->model().route().size(), 2u );
   EXPECT_EQ( counters.refusedCount( tableFull ), 2u );
}

TEST_F( Family, RoutesThatWaitAreCounted ) {
   start( with( "prefix: 0.0.0.0/0", "prefix: 203.0.113.0/24" ) );
   untilAdopted();
   join( "eth1" );
   join( "eth1", "233.252.0.1", "10.9.9.9" );
   join( "eth2", "233.252.0.1", "10.9.9.8" );
   real.runUntil( real.now() + 1 );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 2u );
   configIs( kConfig );
   real.runUntil( real.now() + 1 );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 0u );
   // A count that is damaged keeps none of the others back.
   namespace Tables = Routing::Pim::SparseMode::Brane;
   Mox::Test::breakStamp(
      root.path() + "/" + family->tables().name() + "/routeCounter",
      Tables::RouteCounterKey{ Tables::toBeDeleted, 0 } );
   join( "eth1", "233.252.0.9" );
   real.runUntil( real.now() + 1 );
   Tables::RouteCounter seen;
   EXPECT_EQ(
      family->tables().routeCounter().find( { Tables::toBeDeleted, 0 }, seen ),
      Brane::lookupDamaged );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 0u );
}

}
}
