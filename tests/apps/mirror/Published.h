// Published routes for the show tool: a VRF's model, its tables under a root of
// their own, and the tool's view of them.
#pragma once

#include <algorithm>

#include "apps/mirror/Mirrors.h"
#include "published/Publisher.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"
#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Show {

namespace SmTest = Routing::Pim::SparseMode::Test;

// The agent's side of one VRF and family; its process is this one.
class PublishedSide : public SmTest::AgentSide {
 public:
   PublishedSide( Mox::TestClock& testClock, const std::string& root,
                  Vantu::AddressFamily family = Vantu::AddressFamily::ipv4,
                  const char* name = "default" )
      : AgentSide( testClock, root ) {
      L3::VrfName vrfName( name );
      model = Routing::Pim::SparseMode::statusFactory( vrfName );
      model->maxRoutesIs( 1000 );
      model->maxRouteIntfsIs( 10000 );
      path = Routing::Pim::SparseMode::Brane::Status::mountPath( family, vrfName );
      start();
      namespace Sm = Routing::Pim::SparseMode;
      registers = Sm::RegisterStatus::mount(
         manager, Sm::RegisterStatus::mountPath( family, vrfName ),
         ::Brane::tableWriter, Sm::RegisterCapacities( *model ) );
      advertised = Sm::AdvertisedSgStatus::mount(
         manager, Sm::AdvertisedSgStatus::mountPath( family, vrfName ),
         ::Brane::tableWriter, Sm::AdvertisedSgStatus::capacityFor( *model ) );
   }
   SmTest::Vrf vrf() const { return SmTest::Vrf( model ); }

   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers;
   Mox::Ptr<Routing::Pim::SparseMode::AdvertisedSgStatus> advertised;
};

// The same state in every run: every reading of the time gives `now`.
//
//    default ipv4   two shared trees, a source tree, a source pruned off, an
//                   unresolved source
//                   registered and other sources, advertised ones
//    default ipv6   a shared tree, a source from an anycast-RP peer, advertised
//    red ipv4       no route
class ShownRouter {
 public:
   static constexpr double now = 1000000.0;

   ShownRouter() { fill(); }
   explicit ShownRouter( const std::string& path ) : root( path ) { fill(); }

   // The writer of the VRF default, IPv4, ends; its tables stay.
   void end() {
      ipv4.writer.reset();
      ipv4.restart.reset();
      ipv4.tables.reset();
      ipv4.registers.reset();
      ipv4.advertised.reset();
      agent.reset();
   }

   // The agent's interfaces of the VRF default, IPv4: DR on eth3, not on eth2; and its
   // neighbours.
   void publishInterfaces() {
      agent = ::Published::FamilyStatus::mount(
         ipv4.manager,
         ::Published::FamilyStatus::mountPath( Vantu::AddressFamily::ipv4,
                                               L3::VrfName( "default" ) ),
         ::Brane::tableWriter, 100 );
      auto intf = [&]( const char* name, const char* address, bool dr,
                       uint32_t neighbors ) {
         ::Published::Interface record{
            SmTest::intfId( name ), SmTest::addr( address ), 24, dr, neighbors };
         record.link = ::Published::linkUp;
         record.querier = record.address;
         agent->interfaceIs( record );
      };
      intf( "eth0", "192.0.2.2", false, 1 );
      intf( "eth1", "192.0.2.4", false, 1 );
      intf( "eth2", "198.51.100.2", false, 2 );
      intf( "eth3", "192.0.2.130", true, 0 );
      intf( "eth4", "203.0.113.2", true, 0 );
      intf( "eth9", "203.0.113.130", true, 0 );
      publishNeighbors();
   }

   // On eth0 the DR and querier, on eth1 one that tells little; eth8 is down.
   void publishNeighbors() const {
      using namespace ::Published;
      Interface eth0;
      agent->interface().find( SmTest::intfId( "eth0" ), eth0 );
      eth0.dr = eth0.querier = SmTest::addr( "192.0.2.1" );
      eth0.otherQuerierUntil = now + 200;
      eth0.speaks = true;
      eth0.generationId = 77;
      eth0.nextHello = now + 12;
      agent->interfaceIs( eth0 );
      Interface eth8{ SmTest::intfId( "eth8" ), SmTest::addr( "203.0.113.9" ), 30 };
      eth8.link = linkDown;
      agent->interfaceIs( eth8 );
      const NeighborKey dr{ eth0.key, eth0.dr, 0 };
      Neighbor rich{ dr, true, 100, true, 0x1a2b, true, 500, 2500, true, 105 };
      rich.until = now + 90;
      rich.since = now - 7200;
      agent->neighborIs( rich );
      agent->neighborAddressIs(
         { { eth0.key, eth0.dr, SmTest::addr( "10.0.0.7" ) } } );
      Neighbor poor{ { SmTest::intfId( "eth1" ), SmTest::addr( "192.0.2.5" ), 0 } };
      poor.holdtime = 65535;
      agent->neighborIs( poor );
   }

   // RPs of the VRF default, IPv4, and the default source-specific range. Called
   // after publishInterfaces().
   void publishGroups() {
      ::Published::publishRps( *agent, { { { SmTest::addr( "239.0.0.0" ), 8 },
                                           SmTest::addr( "192.0.2.9" ) },
                                         { { SmTest::addr( "239.1.10.0" ), 24 },
                                           SmTest::addr( "192.0.2.254" ) } } );
      using ::Published::Text;
      ::Published::publishSettings(
         *agent, { { Text<32>( "ssmFilter" ), Text<224>( "" ) },
                   { Text<32>( "embedded-rp" ), Text<224>( "yes" ) },
                   { Text<32>( "access-rules" ), Text<224>( "0" ) } } );
      // A host of IGMPv2, and a source that its hosts are asked for.
      ::Published::Downstream asked{
         { SmTest::wcKey( "239.1.2.3" ), SmTest::intfId( "eth3" ) } };
      asked.memberVersion = 2;
      asked.memberUntil = now + 2;
      ::Published::publishDownstream( *agent, asked );
   }

   // The kernel's counters of three streams: 1000 packets of 100 bytes a second, 10 of
   // 20,000, and none. Each call is a second further.
   void publishTraffic() {
      if ( forwarding == nullptr )
         forwarding = ::Published::MfibStatus::mount(
            ipv4.manager,
            ::Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                                L3::VrfName( "default" ) ),
            ::Brane::tableWriter, 1000 );
      seconds += 1;
      forwarding->vifIs( { SmTest::intfId( "eth1" ), 1, 7, 1000 * seconds,
                           100000 * seconds, 1, 60 } );
      const auto stream = [&]( const char* source, const char* group, uint64_t each,
                               uint64_t bytes ) {
         ::Published::MfibCache record{ SmTest::sgKey( source, group ) };
         record.packets = 5 + each * seconds;
         record.bytes = record.packets * bytes;
         record.lastPacket =
            now + ( each != 0 ? static_cast<double>( seconds ) : 0 );
         forwarding->cacheIs( record );
      };
      stream( "198.51.100.9", "239.1.2.3", 10, 20000 );
      stream( "198.51.100.7", "239.1.2.3", 1000, 100 );
      stream( "203.0.113.9", "239.0.0.1", 0, 100 );
   }

   // Some of the agent's counters.
   void publishProcess() {
      using ::Published::ProcessStatus;
      process = ProcessStatus::mount( ipv4.manager, ::Brane::tableWriter );
      mfib = ProcessStatus::mountAt( ipv4.manager, ::Brane::tableWriter,
                                     ProcessStatus::mfibPath );
      mfib->counterIs( { { ::Published::Text<160>( "mfib/upcalls/ipv6/red" ),
                           ::Published::Text<48>( "wrongInterface" ) },
                         6 } );
      mfib->counterIs( { { ::Published::Text<160>( "mfib/events" ),
                           ::Published::Text<48>( "entryWritten" ) },
                         2 } );
      auto count = [&]( const std::string& owner, const char* name,
                        uint64_t value ) {
         process->counterIs(
            { { ::Published::Text<160>( owner ), ::Published::Text<48>( name ) },
              value } );
      };
      count( "agent/packets", "hello", 34 );
      count( "agent/packets", "join-prune", 9 );
      count( "agent/sent", "hello", 12 );
      count( "agent/sent/default/eth1/0", "hello", 7 );
      count( "agent/sent/default/eth0", "hello", 5 );
      count( "agent/sent/default/eth0", "join-prune", 3 );
      count( "agent/received/default/eth0", "hello", 6 );
      count( "agent/refused/default/eth0", "unknownNeighbor", 4 );
      count( "agent/asked/default/192.0.2.254/eth1/0", "joins", 5 );
      count( "agent/dropped", "bad \"checksum\"\\", 2 );
      count( "agent/elections", "assertsWon", 3 );
      count( "agent/events", "joinCame", 8 );
      for ( const char* name : { "routeWritten", "routeRemoved", "routeIntfRefused",
                                 "reviews", "reloadMicroseconds", "reloadRoutes" } )
         count( ipv4.path, name, 1500000 );
      count( ipv4.registers->name(), "registerOifIs", 3 );
      ipv4.tables->routeCounterIs(
         { { Routing::Pim::SparseMode::Brane::switching, 0 }, 7 } );
   }

   Mox::Test::TempRoot root;
   Mox::TestClock clock{ now };
   PublishedSide ipv4{ clock, root.path() };
   PublishedSide ipv6{ clock, root.path(), Vantu::AddressFamily::ipv6 };
   PublishedSide red{ clock, root.path(), Vantu::AddressFamily::ipv4, "red" };
   Mox::Ptr<::Published::FamilyStatus> agent;
   Mox::Ptr<::Published::ProcessStatus> process, mfib;
   Mox::Ptr<::Published::MfibStatus> forwarding;
   uint64_t seconds = 0;  // of traffic

 private:
   void fill() {
      fillShared();
      fillSources();
      fillRegisters();
      auto wc = ipv6.vrf()
                   .wc( "ff0e::db8:1" )
                   .rpTree()
                   .rpf( SmTest::rpfBy( "eth0", "fe80::fe" ) );
      wc->creationTimeIs( now - 3 );
      wc.intf( "eth1" ).joined()->lastJoinReceivedIs( now - 3 );
      wc.intf( "eth1" )->forwardIs( true );
      for ( PublishedSide* side : { &ipv4, &ipv6, &red } ) side->publish();
   }
   // Deliberately in another order than the shown one.
   void fillRegisters() {
      using Routing::Pim::SparseMode::InternalRouteKey;
      auto key = []( const char* source, const char* group ) {
         return InternalRouteKey( SmTest::sgKey( source, group ) );
      };
      auto sending = key( "198.51.100.200", "239.255.255.250" );
      auto stopped = key( "198.51.100.9", "239.1.2.3" );
      auto both = key( "198.51.100.7", "239.1.2.3" );
      auto routers = key( "203.0.113.9", "239.0.0.1" );
      auto moving = key( "203.0.113.10", "239.0.0.1" );
      for ( const auto& each : { sending, stopped, both } )
         ipv4.registers->drDiscoveredSgIs( each );
      for ( const auto& each : { sending, both, moving } )
         ipv4.registers->registerOifIs( each );
      for ( const auto& each : { stopped, routers, moving } )
         ipv4.registers->noRegisterOifIs( each );
      ipv4.registers->anycastDiscoveredSgIs( both );
      auto far = key( "2001:db8::7", "ff0e::db8:1" );
      ipv6.registers->anycastDiscoveredSgIs( far );
      ipv6.registers->noRegisterOifIs( far );
      auto address = []( const char* text ) { return SmTest::addr( text ); };
      ipv4.advertised->collIs( { both.key, address( "192.0.2.101" ), true } );
      ipv4.advertised->collIs( { routers.key, address( "192.0.2.1" ), false } );
      ipv6.advertised->collIs( { far.key, address( "2001:db8::1" ), true } );
   }
   void fillShared() {
      auto wc = ipv4.vrf()
                   .wc( "239.1.2.3" )
                   .rpTree()
                   .upJoined()
                   .rpf( SmTest::rpfBy( "eth0", "192.0.2.1" ) );
      wc->creationTimeIs( now - 42 * 60 );
      wc.intf( "eth2" ).joined()->lastJoinReceivedIs( now - 12 );
      wc.intf( "eth2" )->forwardIs( true );
      wc.intf( "eth3" ).include()->forwardIs( true );
      wc.intf( "eth5" ).joined()->forwardIs( true );
      auto other = ipv4.vrf().wc( "239.1.10.1" ).rpTree().rpf( "eth0" );
      other->creationTimeIs( now - 10.5 * 86400 );
      other.intf( "Port-Channel20" ).joined()->lastJoinReceivedIs( now - 3700 );
   }
   void fillSources() {
      auto tree = ipv4.vrf()
                     .sg( "198.51.100.7", "239.1.2.3" )
                     .spTree()
                     .upJoined()
                     .rpf( SmTest::rpfBy( "eth1", "192.0.2.5" ) );
      tree->creationTimeIs( now - 38 );
      tree.intf( "eth2" ).prunePending()->lastJoinReceivedIs( now - 61 );
      tree.intf( "eth2" )->forwardIs( true );
      tree.intf( "eth3" ).lostAssertTo( "192.0.2.66" );
      tree.intf( "eth4" ).joined().exclude()->lastJoinReceivedIs( now - 1 );
      tree.intf( "eth4" )->forwardIs( true );
      tree.intf( "eth5" )->forwardIs( true );
      auto pruned = ipv4.vrf().sg( "198.51.100.9", "239.1.2.3" ).rpTree();
      pruned.rpf( SmTest::rpfBy( "eth9", "203.0.113.131" ) );
      pruned.intf( "eth2" ).rptPruned()->lastRptPruneReceivedIs( now - 300 );
      auto bare = ipv4.vrf().sg( "203.0.113.9", "239.0.0.1" );
      bare.intf( "eth4" ).joined().wonAssert( "[S] 203.0.113.2 [110/20]" );
   }
};

// The tool's view of a root.
class View {
 public:
   explicit View( const std::string& root, const char* vrf = "all" )
      : mirrors_( Selection{ root, vrf, {} } ) {
      mirrors_.load();
   }
   const Mirror& mirror( const char* vrf, Vantu::AddressFamily family ) const {
      auto found = std::find_if( mirrors_.all().begin(), mirrors_.all().end(),
                                 [&]( const auto& candidate ) {
                                    return candidate->vrf() == vrf &&
                                           candidate->family == family;
                                 } );
      return **found;
   }
   const Mirrors& all() const { return mirrors_; }

 private:
   Mirrors mirrors_;
};

}
