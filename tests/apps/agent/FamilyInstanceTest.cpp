#include "apps/agent/FamilyInstance.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/agent/config/ConfigReader.h"
#include "export/Conversion.h"
#include "tests/apps/agent/ScriptRun.h"
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
      while ( !family->ready() ) real.runPass();
      family->adopt();
      family->handleTurnEnd();
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
      family->handleTurnEnd();
   }
   // A join from a neighbour on the interface: for the group, or for a source of it.
   void join( const char* intf, const char* group = kGroup,
              const char* source = nullptr ) {
      hearJoin( intf, group, source );
      family->handleTurnEnd();
   }
   // The same in the middle of a turn.
   void hearJoin( const char* intf, const char* group, const char* source ) {
      hear( intf, group, { encoded( source, source == nullptr ) }, {} );
   }
   // A prune of the source from the group's shared tree, or of that tree.
   void pruneRpt( const char* intf, const char* source ) {
      hear( intf, kGroup, {}, { encoded( source, true ) } );
      family->handleTurnEnd();
   }
   static EncodedSource encoded( const char* source, bool rpt ) {
      return { addr( source == nullptr ? "203.0.113.1" : source ), 32, true,
               source == nullptr, rpt };
   }
   void hear( const char* intf, const char* group, std::vector<EncodedSource> joins,
              std::vector<EncodedSource> prunes ) {
      PimJoinPrune body;
      for ( const InterfaceConfig& each : family->config().interfaces ) {
         if ( each.name == intfId( intf ) )
            body.upstreamNeighbor = each.addresses.front().address;
      }
      body.holdtime = 210;
      body.groups = {
         { addr( group ), 32, std::move( joins ), std::move( prunes ) } };
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
      family->receive( intfId( intf ), packet, message );
   }
   void pass( double seconds ) {
      real.runUntil( real.now() + seconds );
      family->handleTurnEnd();
   }
   void untilPublished() {
      do {
         real.advance( 0.05 );
         real.runPass();
         family->handleTurnEnd();
      } while ( !family->published() );
   }
   const Route* route( const char* group = kGroup ) const {
      return family->model().route( wcKey( group ) );
   }
   const Route* source( const char* text ) const {
      return family->model().route( sgKey( text, kGroup ) );
   }
   static bool forwards( const Route* of, const char* intf ) {
      const auto* record =
         of != nullptr ? of->routeIntf( intfId( intf ) ) : nullptr;
      return record != nullptr && record->forward();
   }

   Mox::Test::TempRoot root;
   // A keepalive period has not passed since the boot.
   Mox::TestClock real{ 100.0 };
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
   EXPECT_TRUE( forwards( route(), "eth1" ) );
   start();
   for ( size_t i = 0; i < FamilyInstance::maxWaiting + 2; ++i ) join( "eth1" );
   EXPECT_EQ( counters.refusedCount( tooManyWaiting ), 2u );
}

// A review of the tables may be due between an engine's change and the end of the turn.
TEST_F( Family, NoRouteIsPublishedBeforeItsForwarding ) {
   adopted();
   join( "eth1" );
   real.advance( 0.01 );
   hearJoin( "eth2", kGroup, "192.0.2.77" );
   real.runPass();
   const Routing::Pim::RouteKey key = sgKey( "192.0.2.77", kGroup );
   ASSERT_TRUE( family->tables().route().has( key ) );
   for ( const char* intf : { "eth1", "eth2" } ) {
      Tables::Intf record;
      ASSERT_EQ(
         family->tables().routeIntf().find( { key, intfId( intf ) }, record ),
         Brane::lookupFound );
      EXPECT_TRUE( record.forward ) << intf;
   }
}

// An RP has no way to itself, by any of its addresses, and lacks none.
TEST_F( Family, RoutesThatLackAWayAreCounted ) {
   const std::string own =
      with( "[198.51.101.1/24]", "[198.51.101.1/24, 203.0.113.1/24]",
            with( "prefix: 0.0.0.0/0", "prefix: 203.0.113.0/24" ) );
   adopted( own );
   join( "eth1" );
   join( "eth1", kGroup, "10.9.9.9" );
   join( "eth2", kGroup, "10.9.9.8" );
   pass( 1 );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 2u );
   configIs( kConfig );
   pass( 1 );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 0u );
   // A count that is damaged keeps none of the others back.
   Mox::Test::breakStamp(
      root.path() + "/" + family->tables().name() + "/routeCounter",
      Tables::RouteCounterKey{ Tables::toBeDeleted, 0 } );
   configIs( own );
   pass( 1 );
   Tables::RouteCounter seen;
   EXPECT_EQ(
      family->tables().routeCounter().find( { Tables::toBeDeleted, 0 }, seen ),
      Brane::lookupDamaged );
   EXPECT_EQ( family->tables().unresolvedRoutes(), 2u );
}

// Also what the writer does not mark by itself: join and prune states, their times, the
// upstream join state.
TEST_F( Family, TheTablesHoldWhatStandsInTheModel ) {
   adopted( with( "  require-hello: no\n",
                  "  require-hello: no\n  ssmFilter: .no-ssm-range\n" ) );
   const auto expectPublished = [this]( const char* after ) {
      SCOPED_TRACE( after );
      untilPublished();
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
   EXPECT_EQ( family->model().route().size(), 0u );
}

// Changes beyond what forwarding follows in time: the tables follow late, not never.
TEST_F( Family, AFloodHoldsTheTablesUpForAWhileOnly ) {
   adopted( with( "maxRoutes: 100", "maxRoutes: 10000" ) );
   real.stepIs( 0.006 );  // two routes a slice
   const double flooded = real.now();
   for ( int i = 0; family->tables().route().size() == 0; ++i ) {
      ASSERT_LT( real.now(), flooded + 2 * FamilyInstance::maxBehind );
      for ( int source = 1; source <= 10; ++source )
         hearJoin( "eth2", kGroup, fmt::format( "10.0.{}.{}", i, source ).c_str() );
      real.runPass();
      family->handleTurnEnd();
   }
   EXPECT_FALSE( family->published() );
}

TEST_F( Family, RoutesFollowTheConfiguration ) {
   adopted();
   join( "eth1" );
   join( "eth0" );
   EXPECT_EQ( route()->rpf().intfId, intfId( "eth0" ) );
   EXPECT_FALSE( forwards( route(), "eth0" ) );
   configIs( with( "interface: eth0, neighbor: 192.0.2.254",
                   "interface: eth1, neighbor: 198.51.100.254" ) );
   EXPECT_EQ( route()->rpf().intfId, intfId( "eth1" ) );
   EXPECT_EQ( route()->prevRpf().intfId, intfId( "eth0" ) );
   EXPECT_TRUE( forwards( route(), "eth0" ) );
   EXPECT_FALSE( forwards( route(), "eth1" ) );
   configIs( with( "203.0.113.1", "198.51.100.77" ) );
   EXPECT_EQ( route()->umh()->rp(), addr( "198.51.100.77" ) );
   EXPECT_TRUE( route()->rpfAttached() );
   // Without one of our own the last one stays.
   configIs( with( "  rps:\n  - {address: 203.0.113.1}\n", "",
                   with( "198.51.100.1/24", "198.51.103.1/24" ) ) );
   EXPECT_EQ( route()->umh()->rp(), addr( "198.51.100.77" ) );
   EXPECT_EQ( route()->rpf().intfId, intfId( "eth0" ) );
}

TEST_F( Family, AnInterfaceGoesWithItsState ) {
   const std::string gone =
      with( "[198.51.100.1/24, \"fe80::1/64\"]", "[\"fe80::1/64\"]" );
   for ( bool whileDown : { false, true } ) {
      adopted();
      join( "eth1" );
      join( "eth0" );
      join( "eth1", "233.252.0.2" );
      untilPublished();
      whileDown ? adopted( gone ) : configIs( gone );
      ASSERT_NE( route(), nullptr );
      EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) ), nullptr );
      EXPECT_EQ( route( "233.252.0.2" ), nullptr );
      EXPECT_EQ( family->model().pimStatus()->intf( intfId( "eth1" ) ), nullptr );
   }
   join( "eth1" );
   EXPECT_EQ( counters.refusedCount( noAddress ), 1u );
   configIs( with( "198.51.100.1/24", "198.51.100.2/24" ) );
   EXPECT_EQ( family->model().pimStatus()->intf( intfId( "eth1" ) )->addr().address,
              addr( "198.51.100.2" ) );
}

// The default range, none, and a list; what stands when the range changes ends.
TEST_F( Family, SourceSpecificGroupsGetNoSharedTree ) {
   adopted();
   join( "eth1", "232.1.1.1" );
   EXPECT_EQ( route( "232.1.1.1" ), nullptr );
   EXPECT_EQ( counters.refusedCount( ssmGroup ), 1u );
   join( "eth1", "232.1.1.1", "192.0.2.77" );
   EXPECT_EQ( family->model().route().size(), 1u );
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

TEST_F( Family, BackupPathsStandWhereTheFilterEnablesThem ) {
   const std::string backup =
      with( "neighbor: 192.0.2.254",
            "neighbor: 192.0.2.254, backup: {interface: eth2, "
            "neighbor: 198.51.101.254, metric: 7}" );
   adopted( backup );
   join( "eth1" );
   EXPECT_EQ( route()->umhFrr(), nullptr ) << "no filter enables it";
   configIs( with( "  require-hello",
                   "  frrFilter: fast\n"
                   "  access-lists:\n"
                   "  - name: fast\n"
                   "    rules: [{action: permit, group: 233.252.0.0/24}]\n"
                   "  require-hello",
                   backup ) );
   EXPECT_EQ( route()->rpfFrr(), rpfBy( "eth2", "198.51.101.254", 1, 7 ) );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth1" ) )->fastForward() );
   join( "eth1", "233.252.1.1" );
   EXPECT_EQ( route( "233.252.1.1" )->umhFrr(), nullptr );
   configIs( kConfig );
   EXPECT_EQ( route()->umhFrr(), nullptr );
   EXPECT_FALSE( route()->routeIntf( intfId( "eth1" ) )->fastForward() );
}

TEST_F( Family, RetiringRemovesTheTables ) {
   adopted();
   std::vector<std::string> files;
   for ( const std::string& file : { family->tables().name() + "/route",
                                     family->registers().name() + "/registerOif",
                                     family->advertised().name() + "/coll",
                                     Published::FamilyStatus::mountPath(
                                        family->family(), family->config().name ) +
                                        "/interface" } )
      files.push_back( root.path() + "/" + file );
   for ( const auto& file : files ) EXPECT_TRUE( std::filesystem::exists( file ) );
   family->retire();
   family.reset();
   for ( const auto& file : files ) EXPECT_FALSE( std::filesystem::exists( file ) );
}

// Registers wait for the reload like all messages, and come from any of the router's
// own addresses; what is advertised follows the file.
TEST_F( Family, RegistersAndAdvertisesAsTheConfigurationSays ) {
   start( std::string( kConfig ) +
          "  advertised:\n"
          "  - {source: 10.0.0.7, group: 239.1.2.3, rp: "
          "203.0.113.1}\n" );
   PimRegister sent;
   sent.source = addr( "198.51.100.7" );
   sent.group = addr( "239.1.2.3" );
   receive( "eth0", "198.51.101.1", pim( sent ), "203.0.113.1" );
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

// What was forwarding goes on, without a gap: on an (S,G) route also where only the (*,G)
// record stands behind it.
TEST_F( Family, AReloadKeepsForwarding ) {
   adopted();
   join( "eth1" );
   join( "eth2", kGroup, "192.0.2.77" );
   auto both = [&] {
      return forwards( source( "192.0.2.77" ), "eth1" ) &&
             forwards( source( "192.0.2.77" ), "eth2" );
   };
   ASSERT_TRUE( both() );
   untilPublished();
   start();
   while ( !family->ready() ) real.runPass();
   EXPECT_TRUE( both() );
   const auto& groupsBy = family->counting().groups().groupsBySourceCount();
   EXPECT_EQ( groupsBy.at( 1 ).addr().size(), 1u );
   family->adopt();
   EXPECT_TRUE( both() );
   family->handleTurnEnd();
   EXPECT_TRUE( both() );
   pass( JoinPruneEngine::defaultHoldtime );
   EXPECT_EQ( family->model().route().size(), 0u );
   EXPECT_TRUE( groupsBy.empty() );
}

// What hosts and other routers say reaches the outgoing list, and outlives the process.
TEST_F( Family, MembersAndAssertsDecideWhatForwards ) {
   adopted();
   auto forwarding = [&] {
      return std::string( forwards( route(), "eth1" ) ? "*" : "-" ) +
             ( forwards( source( "192.0.2.77" ), "eth1" ) ? "S" : "-" );
   };
   auto assertOf = [&]( const char* source, bool rpt ) {
      receive( "eth1", "198.51.100.9",
               pim( PimAssert{ addr( kGroup ), 32, addr( source ), rpt, 0, 0 } ) );
      family->handleTurnEnd();
   };
   MembershipReport report;
   report.records = { { isExclude, addr( kGroup ), {} } };
   receive( "eth1", "198.51.100.7", MembershipMessage( report ) );
   join( "eth2", kGroup, "192.0.2.77" );
   EXPECT_EQ( forwarding(), "*S" );
   assertOf( "192.0.2.77", false );
   EXPECT_EQ( forwarding(), "*-" ) << "of the source's tree, not the group's";
   hearJoin( "eth1", kGroup, "192.0.2.77" );
   family->handleTurnEnd();
   EXPECT_EQ( forwarding(), "*S" ) << "a join ends it";
   assertOf( "0.0.0.0", true );
   EXPECT_EQ( forwarding(), "-S" );
   pass( 181 );
   EXPECT_EQ( forwarding(), "*S" );
   assertOf( "0.0.0.0", true );
   pass( 1 );
   adopted();
   EXPECT_EQ( forwarding(), "-S" );
   EXPECT_EQ( route()->routeIntf( intfId( "eth1" ) )->assertWinner(),
              addr( "198.51.100.9" ) );
   EXPECT_TRUE( route()->routeIntf( intfId( "eth1" ) )->localReceiverInclude() );
   pass( 181 );
   EXPECT_TRUE( forwards( route(), "eth1" ) );
}

// Else this router would think itself the DR until the next hello, and forward beside
// the one that is.
TEST_F( Family, NeighborsAreKnownAfterARestart ) {
   adopted();
   PimHello hello;
   hello.holdtime = 0xffff;
   hello.drPriority = 7;
   hello.generationId = 0;
   hello.lanPruneDelay = LanPruneDelay{ true, 100, 4000 };
   receive( "eth1", "198.51.100.0", pim( hello ) );
   hello.drPriority = 0;
   receive( "eth2", "198.51.101.9", pim( hello ) );
   family->handleTurnEnd();
   auto dr = [&]( const char* intf ) {
      return family->model().pimStatus()->intf( intfId( intf ) )->iAmDr();
   };
   for ( int restart = 0; restart < 2; ++restart ) {
      EXPECT_FALSE( dr( "eth1" ) );
      start();
      EXPECT_FALSE( dr( "eth1" ) );
      EXPECT_TRUE( dr( "eth2" ) );
      untilAdopted();
   }
   pass( 104 );
   EXPECT_FALSE( dr( "eth1" ) );
   pass( 2 );
   EXPECT_TRUE( dr( "eth1" ) ) << "nobody said hello since";
   start();
   EXPECT_TRUE( dr( "eth1" ) ) << "who has gone does not come back";
}

// A source on a link is known from the packets that the forwarding process tells of.
class Sources : public Family {
 public:
   // A is on eth1, B on eth2, X behind another router.
   static const char* address( const std::string& name ) {
      return name == "A"   ? "198.51.100.7"
             : name == "B" ? "198.51.101.9"
                           : "203.0.113.77";
   }
   // "up A eth1 4", "wrong A eth1": an upcall of 4 s ago, of now; "packets A 5" the
   // kernel's count; "join eth2 A", "prune eth2 A". At a restart eth2 is another subnet.
   void act( const ScriptWords& words ) {
      const std::string& event = words[0];
      if ( event == "restart" )
         return adopted( with( "198.51.101.1/24", "198.51.102.1/24" ) );
      if ( event == "join" )
         join( words[1].c_str(), kGroup,
               words.size() > 2 ? address( words[2] ) : nullptr );
      if ( event == "prune" ) pruneRpt( words[1].c_str(), address( words[2] ) );
      const double age = words.size() > 3 ? std::stod( words[3] ) : 0.0;
      if ( event == "up" || event == "wrong" )
         mfib->upcallIs(
            { { sgKey( address( words[1] ), kGroup ), intfId( words[2] ) },
              event == "up" ? Published::noCacheUpcall : Published::wrongVifUpcall,
              1,
              real.now() - age } );
      if ( event == "packets" ) {
         const uint64_t count = std::stoul( words[2] );
         mfib->cacheIs( { sgKey( address( words[1] ), kGroup ), count, count * 100,
                          2, count == 0 ? 0.0 : real.now() } );
      }
      kernelSide.dispatch();
      manager.dispatch();
      family->handleTurnEnd();
   }
   // "A sends spt": of each source with a route whether its packets are known of, and whether
   // it is on its own tree; "won" is an assert on eth1.
   std::string state() const {
      std::string out;
      for ( const char* name : { "A", "B", "X" } ) {
         const Route* of = source( address( name ) );
         if ( of == nullptr ) continue;
         out += ( out.empty() ? "" : "; " ) + std::string( name );
         if ( !of->katExpired() ) out += " sends";
         if ( of->spTree() ) out += " spt";
         const auto* intf = of->routeIntf( intfId( "eth1" ) );
         if ( intf != nullptr && intf->assertInfo().assertState ==
                                    Routing::Pim::SparseMode::iAmAssertWinner )
            out += " won";
      }
      return out.empty() ? "none" : out;
   }

   Corvex::EntityManager kernelSide{ real, nullptr, root.path() };
   Mox::Ptr<Published::MfibStatus> mfib = Published::MfibStatus::mount(
      kernelSide,
      Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                        L3::VrfName( "default" ) ),
      Brane::tableWriter, 100 );
};

const ScriptRow kSources[] = {
   { "0 up A eth1", "0 A sends spt, 210 none" },
   { "0 up A eth1, 200 packets A 5", "0 A sends spt, 410 none" },
   { "0 up A eth1 200", "0 A sends spt, 10 none" },
   { "0 up A eth1 210", "" },
   // From another link, or behind another router; counters make no state.
   { "0 up A eth2, 0 up X eth1, 1 packets A 5", "" },
   // A route that a join made before has an entry in the kernel, and no upcall.
   { "0 join eth2 A, 0 join eth2 X, 1 packets A 0, 2 packets A 1, 3 packets X 1",
     "0 A spt, 0 A spt; X spt, 2 A sends spt; X spt, 210 A sends spt, 212 none" },
   // So has one that a prune from the shared tree made, by the source's link.
   { "0 join eth2, 0 prune eth2 A, 1 packets A 1", "0 A, 1 A sends spt, 211 none" },
   // Taken up after a restart, but for who is not on the link any more.
   { "0 up A eth1, 0 up B eth2, 1 restart",
     "0 A sends spt; B sends spt, 1 A sends spt, 211 none" },
   // On the wrong side it is asserted, if that is news.
   { "0 join eth1 X, 1 wrong X eth2, 2 wrong X eth1 4", "0 X spt, 210 none" },
   { "0 join eth1 X, 3 wrong X eth1",
     "0 X spt, 3 X spt won, 210 X won, 210.01 none" },
};

TEST_F( Sources, FollowWhatTheKernelTells ) {
   for ( const auto& [script, history] : kSources ) {
      for ( const auto& key : mfib->upcall().keys() ) mfib->upcallDel( key );
      for ( const auto& key : mfib->cache().keys() ) mfib->cacheDel( key );
      adopted();
      EXPECT_EQ( playScript( real, script, *this ), history ) << script;
   }
}

TEST_F( Sources, FillInWhatTheRouteIs ) {
   adopted( with( "maxRoutes: 100", "maxRoutes: 2" ) );
   const auto tell = [this]( const ScriptWords& words ) {
      act( words );
      pass( 0.01 );
   };
   join( "eth2" );
   tell( { "up", "A", "eth1" } );
   tell( { "packets", "A", "5" } );
   const Route& route = *source( address( "A" ) );
   EXPECT_TRUE( route.directlyConnected() );
   EXPECT_EQ( route.iif(), intfId( "eth1" ) );
   EXPECT_TRUE( forwards( &route, "eth2" ) );
   EXPECT_EQ( route.kernelStats(), ( Routing::Pim::PimKernelStats{ 5, 500, 2 } ) );
   // Beyond the limit of routes they are refused, and others are.
   tell( { "up", "B", "eth2" } );
   tell( { "up", "A", "eth1" } );
   join( "eth2", "233.252.0.3" );
   EXPECT_EQ( family->model().route().size(), 2u );
   EXPECT_EQ( counters.refusedCount( tableFull ), 2u );
}

}
}
