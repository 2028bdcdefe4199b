#include "apps/agent/FamilyInstance.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "apps/config/ConfigReader.h"
#include "export/Conversion.h"
#include "tests/engine/ScriptRun.h"
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
   // A join from a neighbour on the interface: for the group, or for a source of it.
   void join( const char* intf, const char* group = kGroup,
              const char* source = nullptr ) {
      hearJoin( intf, group, source );
      family->router().handleTurnEnd();
   }
   // The same in the middle of a turn.
   void hearJoin( const char* intf, const char* group, const char* source ) {
      hear( intf, group, { encoded( source, source == nullptr ) }, {} );
   }
   // A prune of the source from the group's shared tree, or of that tree.
   void pruneRpt( const char* intf, const char* source ) {
      hear( intf, kGroup, {}, { encoded( source, true ) } );
      family->router().handleTurnEnd();
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
      body.holdtime = holdtime;
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
   uint16_t holdtime = 210;  // of what is joined and pruned
   // A keepalive period has not passed since the boot.
   Mox::TestClock real{ 100.0 };
   AgentClock clock{ real };
   RouterCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   std::unique_ptr<FamilyInstance> family;
};

// A review of the tables may be due between an engine's change and the end of the turn.
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

// A router that is the RP needs no path to itself: its routes do not count as unresolved,
// whichever of its addresses the RP has.
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
   // A count that is damaged keeps none of the others back.
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

// Also what the writer does not mark by itself: join and prune states, their times, the
// upstream join state.
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

// Changes beyond what forwarding follows in time: the tables follow late, not never.
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

// Else this router would think itself the DR until the next hello, and forward beside
// the one that is.
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
   // What is left of its hold time, but no less than the time to its next hello.
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

// What the configuration says otherwise.
const std::map<std::string, std::pair<const char*, const char*>> kChanges = {
   { "plain", { "", "" } },
   { "rerouted",
     { "eth0, neighbor: 192.0.2.254", "eth1, neighbor: 198.51.100.254" } },
   { "rp-on-eth1", { "203.0.113.1", "198.51.100.77" } },
   { "no-rp", { "[{address: 203.0.113.1}]", "[]" } },
   { "no-eth1", { "198.51.100.1/24, ", "" } },
   { "eth1-moved", { "198.51.100.1/24", "10.0.0.1/24" } },
   { "eth2-moved", { "198.51.101.1/24", "198.51.102.1/24" } },
   { "two-routes", { "maxRoutes: 100", "maxRoutes: 2" } },
   { "no-ssm",
     { "  require-hello", "  ssmFilter: .no-ssm-range\n  require-hello" } },
   { "own-ssm", { "  require-hello", "  ssmFilter: most\n  require-hello" } },
   { "frr", { "  require-hello", "  frrFilter: some\n  require-hello" } },
};

class Scripts : public Family {
 public:
   // A is on eth1, B on eth2, X behind another router.
   static const char* address( const std::string& name ) {
      return name == "A"   ? "198.51.100.7"
             : name == "B" ? "198.51.101.9"
                           : "203.0.113.77";
   }
   using Family::hear;
   // "no-rp" or "no-rp+eth1-moved".
   static std::string config( const std::string& names ) {
      std::istringstream words( names );
      std::string out = kConfig;
      for ( std::string name; std::getline( words, name, '+' ); )
         out = with( kChanges.at( name ).first, kChanges.at( name ).second, out );
      return out;
   }
   // "config plain", "restart plain", "hold 30"; "others eth1" are two neighbours; "start" and "adopt" are the halves of a restart.
   void act( const ScriptWords& words ) {
      const std::string& event = words[0];
      if ( event == "config" ) return configIs( config( words[1] ) );
      if ( event == "restart" ) return adopted( config( words[1] ) );
      if ( event == "hold" ) {
         holdtime = static_cast<uint16_t>( std::stoul( words[1] ) );
         return;
      }
      if ( event == "adopt" ) return family->router().adopt();
      if ( event == "start" ) {
         start();
         while ( !family->router().ready() ) real.runPass();
      } else if ( event == "up" || event == "wrong" || event == "packets" ) {
         tell( words );
      } else {
         hear( words );
      }
   }
   // "up A eth1 4", "wrong A eth1": upcalls of 4 s ago, of now; "packets A 5": the kernel's
   // count.
   void tell( const ScriptWords& words ) {
      const auto key = sgKey( address( words[1] ), kGroup );
      const double age = words.size() > 3 ? std::stod( words[3] ) : 0.0;
      const double now = real.now();
      if ( words[0] == "packets" ) {
         const uint64_t count = std::stoul( words[2] );
         mfib->cacheIs( { key, count, count * 100, 2, count == 0 ? 0.0 : now } );
      } else {
         auto kind =
            words[0] == "up" ? Published::noCacheUpcall : Published::wrongVifUpcall;
         mfib->upcallIs( { { key, intfId( words[2] ) }, kind, 1, now - age } );
      }
      kernelSide.dispatch();
      manager.dispatch();
   }
   // "join eth1", "join eth1 A", "join eth1 239.1.1.1 A"; "prune eth2 A" from the shared tree;
   // "member eth1 239.1.1.1"; "assert eth1 A" and "assert eth1" are better than ours.
   void hear( const ScriptWords& words ) {
      const std::string& event = words[0];
      const char* intf = words[1].c_str();
      const bool ofSource = words.back().size() == 1;
      const char* from = ofSource ? address( words.back() ) : nullptr;
      const bool ofGroup = words.size() > 2 && words[2].size() > 1;
      const char* group = ofGroup ? words[2].c_str() : kGroup;
      if ( event == "join" ) hearJoin( intf, group, from );
      if ( event == "prune" ) pruneRpt( intf, from );
      PimHello hello;
      hello.generationId = 7;
      for ( const char* other : { "198.51.100.8", "198.51.100.9" } )
         if ( event == "others" ) receive( intf, other, pim( hello ) );
      MembershipReport report;
      report.records = { { isExclude, addr( group ), {} } };
      if ( event == "member" )
         receive( intf, "198.51.100.7", MembershipMessage( report ) );
      if ( event == "assert" )
         receive(
            intf, "198.51.100.9",
            pim( PimAssert{ addr( kGroup ), 32, addr( ofSource ? from : "0.0.0.0" ),
                            !ofSource, 0, 0 } ) );
   }
   // "*@eth0 eth1 [eth2]; A@eth1 sends spt eth2": each route with its RPF interface and, where
   // there is one, its backup; whether its source is known to send and is on its own tree;
   // the records, in brackets those that do not forward, with a plus those that do fast.
   std::string state() {
      family->router().handleTurnEnd();
      std::set<std::string> out;
      for ( const Route& route : family->router().model().route() ) {
         std::string text = "*";
         for ( const char* name : { "A", "B", "X" } )
            if ( route.key().source == addr( address( name ) ) ) text = name;
         if ( route.key().group != addr( kGroup ) )
            text += valueToStrep( route.key().group );
         text += fmt::format( "@{}", route.rpf().intfId.name() );
         if ( route.umhFrr() != nullptr )
            text += fmt::format( "/{}", route.rpfFrr().intfId.name() );
         if ( !route.katExpired() ) text += " sends";
         if ( route.spTree() ) text += " spt";
         for ( const char* name : { "eth0", "eth1", "eth2" } ) {
            const auto* intf = route.routeIntf( intfId( name ) );
            if ( intf == nullptr ) continue;
            std::string record = name;
            if ( intf->assertInfo().assertState ==
                 Routing::Pim::SparseMode::iAmAssertWinner )
               record += " won";
            if ( intf->assertInfo().assertState ==
                 Routing::Pim::SparseMode::iAmAssertLoser )
               record += " lost";
            if ( intf->fastForward() ) record += "+";
            text += intf->forward() ? " " + record : " [" + record + "]";
         }
         out.insert( text );
      }
      return out.empty() ? "none" : fmt::format( "{}", fmt::join( out, "; " ) );
   }

   Corvex::EntityManager kernelSide{ real, nullptr, root.path() };
   Mox::Ptr<Published::MfibStatus> mfib = Published::MfibStatus::mount(
      kernelSide,
      Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                        L3::VrfName( "default" ) ),
      Brane::tableWriter, 100 );
};

const ScriptRow kRows[] = {
   // Routes follow the configuration, with a joined RP where none is configured.
   { "0 join eth1, 0 join eth0, 1 config rerouted, 2 config plain",
     "0 *@eth0 eth1, 0 *@eth0 [eth0] eth1, 1 *@eth1 eth0 [eth1], "
     "2 *@eth0 [eth0] eth1, 210 none" },
   { "0 join eth1, 1 config rp-on-eth1, 2 config no-rp+eth1-moved",
     "0 *@eth0 eth1, 1 *@eth1 [eth1], 2 *@eth0 eth1, 210 none" },
   // An interface goes with its state, also while no agent runs.
   { "0 join eth1, 0 join eth0, 0 join eth1 233.252.0.2, 1 config no-eth1",
     "0 *@eth0 eth1, 0 *@eth0 [eth0] eth1, "
     "0 *233.252.0.2@eth0 eth1; *@eth0 [eth0] eth1, 1 *@eth0 [eth0], 210 none" },
   { "0 join eth1, 0 join eth0, 0 join eth1 233.252.0.2, 1 restart no-eth1",
     "0 *@eth0 eth1, 0 *@eth0 [eth0] eth1, "
     "0 *233.252.0.2@eth0 eth1; *@eth0 [eth0] eth1, 1 *@eth0 [eth0], 210 none" },
   // What a join or prune said of its time holds over a restart; a time that ran out
   // while no agent ran is a little longer.
   { "0 hold 3600, 0 join eth1, 300 restart plain", "0 *@eth0 eth1, 3600 none" },
   { "0 hold 65535, 0 join eth1, 9 restart plain, 90000 prune eth1",
     "0 *@eth0 eth1, 90000 none" },
   { "0 hold 30, 0 join eth1, 0 hold 300, 0 join eth1, 9 restart plain, 9 hold 20, "
     "99 join eth1, 100 restart plain",
     "0 *@eth0 eth1, 300 none" },
   { "0 hold 30, 0 join eth1, 9 start, 40 adopt, 41 restart plain",
     "0 *@eth0 eth1, 45 none" },
   { "0 hold 300, 0 others eth1, 0 join eth1, 10 prune eth1 X, 11 restart plain, "
     "20 prune eth1, 21 restart plain",
     "0 *@eth0 eth1, 10 *@eth0 eth1; X@eth0 eth1, 13 *@eth0 eth1; X@eth0 [eth1], "
     "23 X@eth0 [eth1], 310 none" },
   { "0 hold 210, 0 others eth1, 0 join eth1, 1 prune eth1, 2 join eth1, "
     "3 restart plain",
     "0 *@eth0 eth1, 212 none" },
   { "0 others eth1, 0 join eth1, 1 prune eth1, 2 start, 9 adopt",
     "0 *@eth0 eth1, 14 none" },
   // Source-specific groups get no shared tree: the default range, none, and a list.
   { "0 join eth1 232.1.1.1, 0 join eth1 232.1.1.1 X",
     "0 X232.1.1.1@eth0 spt eth1, 210 none" },
   { "0 config no-ssm, 0 join eth1 232.1.1.1, 0 join eth1 239.7.1.1, "
     "0 member eth2 239.7.1.1, 1 config own-ssm",
     "0 *232.1.1.1@eth0 eth1, 0 *232.1.1.1@eth0 eth1; *239.7.1.1@eth0 eth1, "
     "0 *232.1.1.1@eth0 eth1; *239.7.1.1@eth0 eth1 eth2, "
     "1 *232.1.1.1@eth0 eth1, 210 none" },
   { "0 config own-ssm, 0 join eth1 239.7.2.1, 1 join eth1 239.7.3.1",
     "0 *239.7.2.1@eth0 eth1, 210 none" },
   // Backup paths stand where the filter enables them.
   { "0 join eth1, 0 join eth1 233.252.1.1, 1 config frr, 2 config plain",
     "0 *@eth0 eth1, 0 *233.252.1.1@eth0 eth1; *@eth0 eth1, "
     "1 *233.252.1.1@eth0 eth1; *@eth0/eth2 eth1+, "
     "2 *233.252.1.1@eth0 eth1; *@eth0 eth1, 210 none" },
   // Messages wait for the reload; what was forwarding goes on without a gap, on an (S,G)
   // route also where only the (*,G) record stands behind it.
   { "0 start, 0 join eth1, 1 adopt", "1 *@eth0 eth1, 211 none" },
   { "0 join eth1, 0 join eth2 X, 1 start, 2 adopt",
     "0 *@eth0 eth1, 0 *@eth0 eth1; X@eth0 spt eth1 eth2, 210 none" },
   // What hosts and other routers say, and a reload of it.
   { "0 member eth1, 0 join eth2 X, 1 assert eth1 X, 2 join eth1 X, "
     "3 assert eth1",
     "0 *@eth0 eth1, 0 *@eth0 eth1; X@eth0 spt eth1 eth2, "
     "1 *@eth0 eth1; X@eth0 spt [eth1 lost] eth2, "
     "2 *@eth0 eth1; X@eth0 spt eth1 eth2, "
     "3 *@eth0 [eth1 lost]; X@eth0 spt eth1 eth2, "
     "183 *@eth0 eth1; X@eth0 spt eth1 eth2, "
     "210 *@eth0 eth1; X@eth0 spt eth1, 212 *@eth0 eth1, 260 none" },
   { "0 join eth1, 0 others eth1, 1 assert eth1, 2 restart plain, 3 others eth1",
     "0 *@eth0 eth1, 1 *@eth0 [eth1 lost], 108 *@eth0 eth1, 210 none" },
   { "0 member eth1, 1 assert eth1, 2 restart plain",
     "0 *@eth0 eth1, 1 *@eth0 [eth1 lost], 181 *@eth0 eth1, 262 none" },
   // A source on a link is known from the packets that the forwarding process tells of.
   { "0 join eth2, 0 up A eth1, 200 packets A 5",
     "0 *@eth0 eth2, 0 *@eth0 eth2; A@eth1 sends spt eth2, "
     "210 A@eth1 sends spt, 410 none" },
   { "0 up A eth1 200", "0 A@eth1 sends spt, 10 none" },
   { "0 up A eth1 210", "" },
   // From another link, or behind another router; counters make no state.
   { "0 up A eth2, 0 up X eth1, 1 packets A 5", "" },
   // A route that a join made before has an entry in the kernel, and no upcall.
   { "0 join eth2 A, 0 join eth2 X, 1 packets A 0, 2 packets A 1, "
     "3 packets X 1",
     "0 A@eth1 spt eth2, 0 A@eth1 spt eth2; X@eth0 spt eth2, "
     "2 A@eth1 sends spt eth2; X@eth0 spt eth2, 210 A@eth1 sends spt, 212 none" },
   // So has one that a prune from the shared tree made, by the source's link.
   { "0 join eth2, 0 prune eth2 A, 1 packets A 1",
     "0 *@eth0 eth2, 0 *@eth0 eth2; A@eth1 [eth2], "
     "1 *@eth0 eth2; A@eth1 sends spt [eth2], 210 A@eth1 sends spt, 211 none" },
   // Taken up after a restart, but for who is not on the link any more.
   { "0 up A eth1, 0 up B eth2, 1 restart eth2-moved",
     "0 A@eth1 sends spt; B@eth2 sends spt, 1 A@eth1 sends spt, 211 none" },
   // On the wrong side it is asserted, if that is news.
   { "0 join eth1 X, 1 wrong X eth2, 2 wrong X eth1 4",
     "0 X@eth0 spt eth1, 210 none" },
   { "0 join eth1 X, 3 wrong X eth1",
     "0 X@eth0 spt eth1, 3 X@eth0 spt eth1 won, 210 none" },
   { "0 restart two-routes, 0 join eth1, 0 up A eth1, 1 up B eth2, "
     "2 join eth1 239.1.1.1",
     "0 *@eth0 eth1, 0 *@eth0 eth1; A@eth1 sends spt [eth1], 210 none" },
};

TEST_F( Scripts, LeaveRoutes ) {
   for ( const auto& [script, history] : kRows ) {
      for ( const auto& key : mfib->upcall().keys() ) mfib->upcallDel( key );
      for ( const auto& key : mfib->cache().keys() ) mfib->cacheDel( key );
      adopted();
      EXPECT_EQ( playScript( real, script, *this ), history ) << script;
   }
   EXPECT_EQ( counters.text(), "refused: ssmGroup 2, tableFull 2" );
}

TEST_F( Scripts, FillInWhatTheRouteIs ) {
   adopted();
   for ( const char* step : { "join eth2", "up A eth1", "packets A 5" } ) {
      std::istringstream text( step );
      act( ScriptWords( std::istream_iterator<std::string>( text ), {} ) );
      pass( 0.01 );
   }
   EXPECT_TRUE( source( address( "A" ) )->directlyConnected() );
   EXPECT_EQ( source( address( "A" ) )->kernelStats(),
              ( Routing::Pim::PimKernelStats{ 5, 500, 2 } ) );
   EXPECT_EQ( family->router()
                 .counting()
                 .groups()
                 .groupsBySourceCount()
                 .at( 1 )
                 .addr()
                 .size(),
              1u );
   configIs( config( "no-eth1" ) );
   EXPECT_EQ( family->router().model().pimStatus()->intf( intfId( "eth1" ) ),
              nullptr );
   configIs( config( "eth1-moved" ) );
   EXPECT_EQ( family->router()
                 .model()
                 .pimStatus()
                 ->intf( intfId( "eth1" ) )
                 ->addr()
                 .address,
              addr( "10.0.0.1" ) );
   start();
   for ( size_t i = 0; i < VrfRouter::maxWaiting + 2; ++i ) join( "eth1" );
   EXPECT_EQ( counters.refusedCount( tooManyWaiting ), 2u );
}

}
}
