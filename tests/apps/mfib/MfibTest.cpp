// From routes to the kernel's entries, with a kernel in memory.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>
#include <random>

#include "apps/mfib/EntryCounters.h"
#include "apps/mfib/Family.h"
#include "apps/mfib/RegisterSocket.h"
#include "packet/Numbers.h"
#include "tests/apps/mfib/FakeKernel.h"
#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Forwarding {
namespace {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteKey;
using Sm::Test::addr;
using Sm::Test::intfId;
using Sm::Test::sgKey;
using Sm::Test::wcKey;

constexpr const char* kGroup = "239.1.2.3";
const RouteKey kSg = sgKey( "192.0.2.1", kGroup );
const RouteKey kWc = wcKey( kGroup );

// An agent's tables and their forwarding: eth0 to eth3 are the vifs 0 to 3.
class Forwards : public testing::Test {
 protected:
   void SetUp() override {
      for ( uint32_t i = 0; i < 4; ++i )
         links.linkIs( 10 + i, intfId( "eth" + std::to_string( i ) ) );
      agent.start();
   }
   // Starts the first process, or another one over the kernel's entries.
   void start() {
      family.reset();
      manager =
         std::make_unique<Corvex::EntityManager>( clock, nullptr, root.path() );
      auto seam = std::make_unique<FakeKernel>();
      seam->vifs = kept.vifs;
      seam->entries = kept.entries;
      kernel = seam.get();
      family = std::make_unique<Family>(
         config, std::move( seam ), ways(), links, *manager, clock,
         [this]( const std::string& text ) { said += text + "\n"; } );
      follow( 0.2 );
   }
   virtual RegisterWays ways() { return {}; }
   // The process dies; the kernel keeps its entries.
   void stop() {
      kept.vifs = kernel->vifs;
      kept.entries = kernel->entries;
      family.reset();
      manager.reset();
   }
   void publish() {
      agent.publish();
      follow( 0.0 );
   }
   // Turns the loop for so many seconds.
   void follow( double seconds ) {
      double end = clock.now() + seconds;
      do {
         clock.advance( 0.01 );
         manager->dispatch();
         clock.runPass();
         family->handleTurnEnd();
      } while ( clock.now() < end );
   }
   // The interfaces that an entry sends out of, "1 2"; "none" without one.
   std::string outgoing( const RouteKey& key ) const {
      auto found = kernel->entries.find( key );
      if ( found == kernel->entries.end() ) return "none";
      std::string out;
      for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
         if ( found->second.outgoing[vif] )
            out += ( out.empty() ? "" : " " ) + std::to_string( vif );
      }
      return out;
   }
   int incoming( const RouteKey& key ) const {
      auto found = kernel->entries.find( key );
      return found == kernel->entries.end() ? -1 : int( found->second.incoming );
   }
   Sm::Test::RouteBuilder wc( const char* rpf = "eth0" ) {
      auto route = vrf.wc( kGroup ).rpf( rpf );
      route->initializedIs( true );
      return route;
   }
   Sm::Test::RouteBuilder sg( const char* rpf = "eth0" ) {
      auto route = vrf.sg( "192.0.2.1", kGroup ).spTree().rpf( rpf );
      route->initializedIs( true );
      return route;
   }
   static void forward( Sm::Test::RouteBuilder route, const char* name,
                        bool on = true ) {
      auto intf = route.intf( name );
      intf->initializedIs( true );
      intf->forwardIs( on );
   }

   // Whether the agent is the DR of the link, for hosts of 192.0.2.0/24 on it.
   void drOf( const char* name, bool dr ) {
      if ( roles == nullptr )
         roles = Published::FamilyStatus::mount(
            agent.manager,
            Published::FamilyStatus::mountPath( config.family, config.vrf ),
            Brane::tableWriter, 10 );
      Published::Interface record{ .key = intfId( name ) };
      record.speaks = true;
      record.iAmDr = dr;
      roles->interfaceIs( record );
      roles->ownAddressIs( { { intfId( name ), addr( "192.0.2.254" ), 0 },
                             Vantu::IpGenPrefix( "192.0.2.0/24" ) } );
      agent.manager.dispatch();
      config.router.rps = { { addr( "203.0.113.9" ),
                              { Vantu::IpGenPrefix( "224.0.0.0/8" ),
                                Vantu::IpGenPrefix( "232.0.0.0/5" ) } } };
   }
   void tell( const RouteKey& key, unsigned vif,
              Published::UpcallKind kind = Published::noCacheUpcall ) {
      kernel->upcalls.push_back( { key, vif, kind } );
      family->takeUpcalls();
   }

   Mox::Ptr<Published::MfibStatus> tables() {
      return Published::MfibStatus::mount(
         *manager, Published::MfibStatus::mountPath( config.family, config.vrf ),
         Brane::tableWriter, 1000 );
   }

   FamilyConfig config{
      L3::VrfName( "default" ),
      Vantu::AddressFamily::ipv4,
      253,
      1000,
      { intfId( "eth0" ), intfId( "eth1" ), intfId( "eth2" ), intfId( "eth3" ) } };
   Mox::Test::TempRoot root;
   Mox::TestClock clock{ 1000.0 };
   Sm::Test::AgentSide agent{ clock, root.path() };
   Mox::Ptr<Published::FamilyStatus> roles;
   Sm::Test::Vrf vrf{ agent.model };
   LinkTable links;
   FakeKernel kept;
   std::unique_ptr<Corvex::EntityManager> manager;
   std::unique_ptr<Family> family;
   FakeKernel* kernel = nullptr;
   std::string said;
};

TEST_F( Forwards, AnEntryIsItsRoutesInterfaces ) {
   start();
   auto shared = wc();
   forward( shared, "eth1" );
   forward( shared, "unknown" );
   auto own = sg( "eth3" );
   forward( own, "eth2" );
   forward( own, "eth1", false );
   auto local = vrf.sg( "192.0.2.1", "224.0.0.9" ).spTree().rpf( "eth0" );
   forward( local, "eth1" );
   publish();
   follow( Mfib::settleTime );
   EXPECT_EQ( outgoing( kWc ), "0 1" )
      << "the kernel finds it by its own interface";
   EXPECT_EQ( incoming( kWc ), 0 );
   EXPECT_EQ( outgoing( kSg ), "2" );
   EXPECT_EQ( incoming( kSg ), 3 );
   EXPECT_EQ( kernel->entries.size(), 2u ) << "link-local groups are never routed";
   EXPECT_EQ( kernel->writes, 2 );
   // A route that is not on the source tree comes in along the shared tree, and
   // follows its changes.
   own.spTree( false );
   publish();
   EXPECT_EQ( incoming( kSg ), 0 );
   shared.rpf( "eth2" );
   publish();
   EXPECT_EQ( incoming( kSg ), 2 );
   // A directly connected source sends on its own link.
   own.attached();
   publish();
   EXPECT_EQ( incoming( kSg ), 3 );
   own.attached( false );
   // At the RP itself the shared tree has no incoming interface.
   shared.rpf( Sm::Test::rpfBy( "" ) );
   publish();
   follow( 1.0 );
   EXPECT_TRUE( kernel->entries.empty() );
}

TEST_F( Forwards, WritesDifferencesOnly ) {
   auto own = sg();
   forward( own, "eth1" );
   agent.publish();
   start();
   EXPECT_EQ( kernel->writes, 1 );
   own->creationTimeIs( 5.0 );
   publish();
   follow( 1.0 );
   EXPECT_EQ( kernel->writes, 1 ) << "another value, the same forwarding";
   forward( own, "eth2" );
   publish();
   EXPECT_EQ( kernel->writes, 2 ) << "at once";
}

TEST_F( Forwards, TakesAwayOnlyAfterAQuietMoment ) {
   start();
   auto shared = wc();
   forward( shared, "eth1" );
   publish();
   ASSERT_EQ( outgoing( kWc ), "0 1" );
   // The route is seen before its interfaces; the shared tree must go on.
   auto own = sg();
   publish();
   EXPECT_EQ( outgoing( kSg ), "none" );
   forward( own, "eth1" );
   publish();
   EXPECT_EQ( outgoing( kSg ), "1" );
   forward( own, "eth1", false );
   publish();
   EXPECT_EQ( outgoing( kSg ), "1" );
   follow( Mfib::settleTime );
   EXPECT_EQ( outgoing( kSg ), "" );
   EXPECT_EQ( kernel->writes, 3 );
   agent.model->routeDel( kSg );
   publish();
   EXPECT_EQ( outgoing( kSg ), "none" )
      << "going back to the shared tree only adds";
}

TEST_F( Forwards, AStartTakesUpWhatTheKernelHas ) {
   auto shared = wc();
   forward( shared, "eth1" );
   auto own = sg();
   forward( own, "eth2" );
   agent.publish();
   start();
   stop();
   const auto before = kept.entries;
   start();
   EXPECT_EQ( kernel->writes, 0 );
   EXPECT_EQ( kernel->entries, before );
   stop();
   // Meanwhile one route goes, one changes, one comes. Another interface goes and
   // is back under another number, which the kernel's entries do not show.
   agent.model->routeDel( kSg );
   forward( shared, "eth2" );
   auto other = vrf.sg( "192.0.2.2", kGroup ).spTree().rpf( "eth0" );
   other->initializedIs( true );
   agent.publish();
   start();
   EXPECT_EQ( kernel->writes, 3 );
   EXPECT_EQ( outgoing( kSg ), "none" );
   EXPECT_EQ( outgoing( kWc ), "0 1 2" );
   EXPECT_EQ( outgoing( other->key() ), "" );
   stop();
   kept.vifs.erase( 2 );
   links.linkDel( 12 );
   links.linkIs( 22, intfId( "eth2" ) );
   forward( shared, "eth2", false );
   agent.publish();
   start();
   EXPECT_EQ( kernel->vifs.at( 2 ), 22u );
   EXPECT_EQ( outgoing( kWc ), "0 1" );
}

TEST_F( Forwards, TablesThatAreNotThereTakeNothingAway ) {
   forward( sg(), "eth1" );
   agent.publish();
   start();
   const std::string status = root.path() + "/routing/pim/sparsemode/status";
   const std::string away = root.path() + "/away";
   for ( bool again : { false, true } ) {
      std::filesystem::rename( again ? away : status, again ? status : away );
      follow( 1.0 );
   }
   const size_t told = said.find( "the file is gone" );
   EXPECT_NE( told, std::string::npos );
   EXPECT_EQ( said.find( "the file is gone", told + 1 ), std::string::npos )
      << said;
   stop();
   std::filesystem::rename( status, away );
   start();
   EXPECT_EQ( outgoing( kSg ), "1" );
   EXPECT_EQ( kernel->writes, 0 );
}

TEST_F( Forwards, TablesThatAreRemovedTakeTheirEntriesAlong ) {
   forward( sg(), "eth1" );
   agent.publish();
   start();
   ASSERT_EQ( outgoing( kSg ), "1" );
   agent.manager.removeTables( agent.path );
   follow( 1.0 );
   EXPECT_TRUE( kernel->entries.empty() ) << "the agent gave the VRF up";
}

TEST_F( Forwards, InterfacesThatComeAndGo ) {
   links.linkDel( 11 );
   auto own = sg();
   forward( own, "eth1" );
   agent.publish();
   start();
   EXPECT_NE( said.find( "there is no interface eth1 yet" ), std::string::npos );
   EXPECT_EQ( outgoing( kSg ), "" );
   links.linkIs( 21, intfId( "eth1" ) );
   family->handleLinks();
   follow( 0.0 );
   EXPECT_EQ( kernel->vifs.at( 1 ), 21u );
   EXPECT_EQ( outgoing( kSg ), "1" );
   // The interface goes and is back before it is reported, and an entry is written
   // meanwhile.
   kernel->vifs.erase( 1 );
   forward( own, "eth2" );
   publish();
   EXPECT_EQ( outgoing( kSg ), "2" );
   links.linkDel( 21 );
   family->handleLinks();
   links.linkIs( 31, intfId( "eth1" ) );
   family->handleLinks();
   follow( 0.0 );
   EXPECT_EQ( outgoing( kSg ), "1 2" );
   // Renamed: another interface does not take its place.
   links.linkIs( 31, intfId( "lan" ) );
   links.linkDel( 10 );
   family->handleLinks();
   follow( 1.0 );
   EXPECT_EQ( kernel->vifs.count( 1 ), 0u );
   EXPECT_EQ( outgoing( kSg ), "none" ) << "its incoming interface has gone";
   // The fast-reroute path takes over while the main one's link is down.
   links.linkIs( 10, intfId( "eth0" ) );
   family->handleLinks();
   own.rpfFrr( "eth3" )->routeIntf( intfId( "eth2" ) )->fastForwardIs( true );
   forward( own, "eth2", false );
   publish();
   EXPECT_EQ( incoming( kSg ), 0 );
   links.linkIs( 10, intfId( "eth0" ), false );
   family->handleLinks();
   follow( 0.0 );
   EXPECT_EQ( incoming( kSg ), 3 );
   EXPECT_EQ( outgoing( kSg ), "2" );
   links.linkIs( 13, intfId( "eth3" ), false );
   family->handleLinks();
   follow( 0.0 );
   EXPECT_EQ( incoming( kSg ), 0 ) << "it is down as well";
   // More interfaces than the kernel takes.
   FamilyConfig many = family->config();
   many.interfaces.clear();
   for ( unsigned i = 0; i <= kMaxVifs; ++i )
      many.interfaces.push_back( intfId( "m" + std::to_string( i ) ) );
   family->configIs( many );
   EXPECT_NE( said.find( "m32 is left out" ), std::string::npos ) << said;
}

TEST_F( Forwards, WhatTheKernelRefusesIsTriedAgain ) {
   start();
   kernel->refused.insert( kSg );
   auto own = sg();
   forward( own, "eth1" );
   forward( wc(), "eth1" );
   publish();
   EXPECT_EQ( outgoing( kSg ), "none" );
   EXPECT_EQ( outgoing( kWc ), "0 1" ) << "the others go on";
   EXPECT_EQ( family->mfib().refused(), 1u );
   kernel->refused.clear();
   follow( Mfib::retryTime / 2 );
   EXPECT_EQ( outgoing( kSg ), "none" ) << "not at every turn";
   follow( Mfib::retryTime );
   EXPECT_EQ( outgoing( kSg ), "1" );
}

TEST_F( Forwards, CountersFollowAndGoWithTheirEntries ) {
   start();
   forward( sg(), "eth1" );
   publish();
   Published::MfibCache record;
   auto counted = [&]( uint64_t packets, uint64_t wrongIf, double idle ) {
      StandingEntry& told = kernel->stats[kSg];
      told.packets = packets;
      told.wrongIf = wrongIf;
      told.idle = idle;
      family->publishCounters();
      return tables()->cache().find( kSg, record ) == Brane::lookupFound;
   };
   ASSERT_TRUE( counted( 0, 0, 900.0 ) );
   EXPECT_EQ( record.lastPacket, 0.0 ) << "never";
   ASSERT_TRUE( counted( 5, 5, 0.0 ) );
   EXPECT_EQ( record.packets, 0u );
   EXPECT_EQ( record.lastPacket, 0.0 ) << "only by a wrong interface";
   ASSERT_TRUE( counted( 8, 5, 0.5 ) );
   double last = clock.now() - 0.5;
   EXPECT_EQ( record.packets, 3u );
   EXPECT_EQ( record.lastPacket, last );
   follow( 2.0 );
   ASSERT_TRUE( counted( 9, 6, 0.0 ) );
   EXPECT_EQ( record.wrongIf, 6u );
   EXPECT_EQ( record.lastPacket, last ) << "a packet that counts for nothing";
   agent.model->routeDel( kSg );
   publish();
   follow( 1.0 );
   family->publishCounters();
   EXPECT_EQ( tables()->cache().size(), 0u );
}

TEST_F( Forwards, ANewEntryIsLookedAtMoreClosely ) {
   start();
   forward( sg(), "eth1" );
   publish();
   EXPECT_EQ( tables()->cache().size(), 0u );
   kernel->stats[kSg].packets = 1;
   follow( CloseLook::readInterval );
   EXPECT_EQ( tables()->cache().size(), 1u );
   // Another router forwards onto eth1, too: the kernel is made to tell again.
   auto renewals = [&]( unsigned vif, double seconds ) {
      const int before = kernel->writes;
      for ( const double end = clock.now() + seconds; clock.now() < end; ) {
         tell( kSg, vif, Published::wrongVifUpcall );
         follow( CloseLook::firstWait );
      }
      return ( kernel->writes - before ) / 2;
   };
   EXPECT_EQ( renewals( 2, 1.0 ), 0 ) << "nothing is sent out there";
   EXPECT_EQ( renewals( 1, CloseLook::firstWait ), 1 );
   EXPECT_EQ( renewals( 1, 20.0 ), 4 ) << "at growing intervals, and no more";
   forward( sg(), "eth2" );
   publish();
   EXPECT_GT( renewals( 1, 1.0 ), 0 ) << "it has changed";
   EXPECT_EQ( outgoing( kSg ), "1 2" );
}

// The register vif is number 31.
TEST_F( Forwards, ANewSourceIsServedBeforeItsRouteForATime ) {
   drOf( "eth1", true );
   config.newSourceLimit = 2;
   config.newSourceRate = 3;
   start();
   auto shared = wc();
   forward( shared, "eth1" );
   forward( shared, "eth2" );
   publish();
   follow( Mfib::settleTime );
   tell( kSg, 1 );
   EXPECT_EQ( outgoing( kSg ), "2 31" ) << "at once";
   EXPECT_EQ( incoming( kSg ), 1 );
   for ( int more = 0; more < 2; ++more ) tell( kSg, 1 );
   tell( sgKey( "192.0.9.1", kGroup ), 1 );
   tell( sgKey( "192.0.2.5", kGroup ), 2 );
   for ( const char* group : { "232.1.1.1", "224.0.0.9", "225.0.0.1" } )
      tell( sgKey( "192.0.2.1", group ), 1 );
   EXPECT_EQ( kernel->entries.size(), 2u )
      << "of other subnets and links, SSM, link-local, without an RP";
   // The (*,G) entry takes it for a packet of the wrong side.
   const RouteKey other = sgKey( "192.0.2.2", "239.1.2.4" );
   tell( other, 1, Published::wrongVifUpcall );
   tell( sgKey( "192.0.2.3", kGroup ), 1 );
   EXPECT_EQ( outgoing( other ), "31" );
   EXPECT_EQ( kernel->entries.size(), 3u ) << "the limit";
   follow( 1.0 );
   // Its route decides from then on; the other one's has not come in time.
   auto own = sg( "eth1" );
   forward( own, "eth3" );
   publish();
   follow( Mfib::settleTime );
   EXPECT_EQ( outgoing( kSg ), "3" );
   follow( Mfib::provisionalTime );
   EXPECT_EQ( outgoing( other ), "none" );
   EXPECT_EQ( outgoing( kSg ), "3" );
   drOf( "eth1", false );
   follow( 0.1 );
   tell( other, 1 );
   EXPECT_EQ( outgoing( other ), "none" ) << "not the DR";
}

TEST_F( Forwards, NothingPassesABoundary ) {
   const auto group = Vantu::IpGenPrefix( "239.1.2.0/24" );
   config.router.accessLists = {
      { "none",
        { Acl::standard,
          { { 10, Acl::deny, group, {} },
            { 20, Acl::permit, Vantu::IpGenPrefix( "239.1.3.0/24" ), {} } } } } };
   config.router.interfaces = {
      { .name = intfId( "eth1" ), .addresses = {}, .boundary = { "none", "" } } };
   config.newSourceLimit = 1;
   drOf( "eth1", true );
   start();
   auto shared = wc();
   forward( shared, "eth1" );
   forward( shared, "eth2" );
   publish();
   EXPECT_EQ( outgoing( kWc ), "0 2" );
   const RouteKey other = sgKey( "192.0.2.1", "239.1.3.1" );
   for ( const RouteKey& key : { kSg, other } ) tell( key, 1 );
   EXPECT_EQ( outgoing( kSg ), "none" );
   EXPECT_EQ( outgoing( other ), "31" ) << "it took no place";
   shared.rpf( "eth1" );
   publish();
   follow( 1.0 );
   EXPECT_EQ( outgoing( kWc ), "1" ) << "itself, to be found";
   config.router.interfaces = {};
   family->configIs( config );
   follow( 0.1 );
   EXPECT_EQ( outgoing( kWc ), "1 2" );
}

// This router is 127.0.0.2. All that is sent on the loopback is heard here, too.
class Registering : public Forwards {
 protected:
   void SetUp() override {
      try {
         ear.emplace( config.family, openRawSocket( config.family, IPPROTO_PIM ) );
      } catch ( const std::system_error& problem ) {
         GTEST_SKIP() << problem.what();
      }
      Forwards::SetUp();
      ear->hearing().wantedIs( Registers::Wanted::data );
      config.router.interfaces = {
         { .name = intfId( "eth1" ),
           .addresses = {
              { addr( "127.0.0.2" ), Vantu::IpGenPrefix( "127.0.0.0/8" ) },
              { addr( "127.0.0.9" ), Vantu::IpGenPrefix( "127.0.0.0/8" ) } } } };
   }
   RegisterWays ways() override {
      return { std::make_unique<RegisterSocket>(
                  config.family, openRawSocket( config.family, IPPROTO_PIM ) ),
               nullptr };
   }
   void rpIs( const char* address ) {
      config.router.rps = {
         { addr( address ), { Vantu::IpGenPrefix( "239.0.0.0/8" ) } } };
   }
   // Longer than a link of IPv6 must take.
   static std::vector<uint8_t> packet( const char* group = kGroup ) {
      std::vector<uint8_t> bytes( 1400 );
      bytes[0] = 0x45;
      bytes[2] = 1400 >> 8;
      bytes[3] = 1400 & 0xff;
      bytes[8] = 9;  // TTL
      bytes[9] = IPPROTO_UDP;
      std::memcpy( &bytes[12], addr( "192.0.2.1" ).bytes().data(), 4 );
      std::memcpy( &bytes[16], addr( group ).bytes().data(), 4 );
      return bytes;
   }
   void takePackets( int count ) {
      for ( int i = 0; i < count; ++i )
         kernel->upcalls.push_back(
            { kSg, kRegisterVif, Published::noCacheUpcall, packet() } );
      family->takeUpcalls();
   }
   // "2>3 ttl 8 of 1400" of each register: its last digits, what is in it.
   std::string heard() {
      std::string out;
      while ( const auto all = ear->hearing().next() ) {
         const auto inner = all->payload.subspan( Router::registerHeader );
         out += fmt::format( "{}>{} ttl {} of {}\n", all->source.bytes()[3],
                             all->destination.bytes()[3], inner[8], inner.size() );
      }
      return out;
   }

   std::optional<RegisterSocket> ear;
};

TEST_F( Registering, PacketsGoToTheRpAsFastAsTheyMay ) {
   rpIs( "127.0.0.3" );
   config.router.registerRateLimit = 2;
   start();
   auto own = sg( "eth1" );
   publish();
   takePackets( 1 );
   EXPECT_EQ( heard(), "" ) << "the route does not register";
   auto flags = own->routeFlags();
   flags.oifRegisterIs( true );
   own->routeFlagsIs( flags );
   publish();
   takePackets( 3 );
   EXPECT_EQ( heard(), "2>3 ttl 8 of 1400\n2>3 ttl 8 of 1400\n" );
   follow( 1.0 );
   takePackets( 1 );
   EXPECT_EQ( heard(), "2>3 ttl 8 of 1400\n" );
   config.router.rps = {};
   family->configIs( config );
   takePackets( 1 );
   EXPECT_EQ( heard(), "" ) << "without an RP";
}

TEST_F( Registering, AnAnycastRpPassesThemOnAndBarsWhatIsFiltered ) {
   rpIs( "127.0.0.9" );
   config.router.rps.push_back(
      { addr( "127.0.0.2" ), { Vantu::IpGenPrefix( "238.0.0.0/8" ) } } );
   config.router.accessLists = {
      { "one",
        { Acl::standard,
          { { 10, Acl::permit, Vantu::IpGenPrefix( "239.1.2.0/24" ), {} } } } } };
   const auto registered = [&]( const char* group, const char* from,
                                const char* to ) {
      EXPECT_EQ( ear->pass( packet( group ), addr( from ), addr( to ) ), 0 );
      family->takeRegisters();
      return outgoing( sgKey( "192.0.2.1", group ) );
   };
   start();
   ASSERT_GE( family->registerFile(), 0 );
   EXPECT_EQ( registered( "239.1.3.1", "127.0.0.5", "127.0.0.9" ), "none" );
   config.router.registerFilter = { "one", "" };
   family->configIs( config );
   EXPECT_EQ( registered( "239.1.3.1", "127.0.0.5", "127.0.0.3" ), "none" )
      << "to another router";
   EXPECT_EQ( registered( "239.1.3.1", "127.0.0.2", "127.0.0.9" ), "none" )
      << "from this one";
   EXPECT_EQ( registered( "237.1.3.1", "127.0.0.5", "127.0.0.9" ), "none" )
      << "this is not its RP";
   EXPECT_EQ( registered( kGroup, "127.0.0.5", "127.0.0.9" ), "none" );
   EXPECT_EQ( registered( "239.1.3.1", "127.0.0.5", "127.0.0.9" ), "" );
   config.router.registerFilter = {};
   config.router.anycastRps = {
      { addr( "127.0.0.9" ), addr( "127.0.0.2" ), { addr( "127.0.0.4" ) } } };
   family->configIs( config );
   heard();
   EXPECT_EQ( registered( "239.1.3.2", "127.0.0.5", "127.0.0.9" ), "none" );
   registered( kGroup, "127.0.0.4", "127.0.0.9" );
   registered( kGroup, "127.0.0.6", "127.0.0.2" );
   registered( "238.1.3.1", "127.0.0.7", "127.0.0.9" );
   EXPECT_EQ( heard(),
              "5>9 ttl 9 of 1400\n2>4 ttl 9 of 1400\n"
              "4>9 ttl 9 of 1400\n6>2 ttl 9 of 1400\n7>9 ttl 9 of 1400\n" );
}

// After any order of changes, deaths and interface events, the kernel's entries are
// those of the routes.
TEST_F( Forwards, AnyWalkEndsInStep ) {
   const auto seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   auto pick = [&]( unsigned count ) { return unsigned( random() % count ); };
   auto name = [&] { return "eth" + std::to_string( pick( 4 ) ); };
   start();
   for ( int step = 0; step < 600; ++step ) {
      std::string group = "239.0.0." + std::to_string( 1 + pick( 3 ) );
      std::string source = "192.0.2." + std::to_string( 1 + pick( 3 ) );
      bool shared = pick( 3 ) == 0;
      RouteKey key = shared ? wcKey( group ) : sgKey( source, group );
      switch ( pick( 8 ) ) {
         case 0:
            agent.model->routeDel( key );
            break;
         case 1: {
            uint32_t index = 10 + pick( 4 );
            // The kernel notices first.
            kernel->vifs.erase( index - 10 );
            if ( pick( 2 ) == 0 ) publish();
            links.linkDel( index );
            links.linkDel( index + 100 );
            if ( pick( 3 ) != 0 )
               links.linkIs( pick( 2 ) == 0 ? index : index + 100,
                             intfId( "eth" + std::to_string( index - 10 ) ) );
            family->handleLinks();
            break;
         }
         case 2:
            if ( pick( 4 ) != 0 ) break;
            stop();
            start();
            break;
         default: {
            auto route = shared ? vrf.wc( group ) : vrf.sg( source, group );
            route->initializedIs( true );
            if ( !shared ) route.spTree( pick( 2 ) == 0 );
            if ( pick( 3 ) == 0 ) route.rpf( name() );
            forward( route, name().c_str(), pick( 3 ) != 0 );
         }
      }
      if ( pick( 2 ) == 0 ) publish();
   }
   publish();
   follow( 1.0 );
   Published::MfibStatus& tables = *Published::MfibStatus::mount(
      *manager,
      Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                        L3::VrfName( "default" ) ),
      Brane::tableWriter, 1000 );
   Vifs vifs( *kernel, &tables, []( const std::string& ) {} );
   vifs.adopt( links );
   std::map<RouteKey, Entry> wanted;
   for ( const Sm::Route& route : agent.model->route() ) {
      if ( auto entry = wantedEntry( route, vifs ) ) wanted[route.key()] = *entry;
   }
   EXPECT_EQ( kernel->entries, wanted );
}

}
}
