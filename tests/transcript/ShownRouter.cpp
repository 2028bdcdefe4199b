// Fills tables with the shown router and keeps them as an agent would, until its input
// ends. Each line that it reads changes something; it says the line when that is done.
//
// usage: shown-router ROOT
#include <iostream>
#include <map>

#include "apps/mirror/Events.h"
#include "tests/apps/mirror/Published.h"
#include "tests/support/Damage.h"

namespace {

namespace SmTest = Routing::Pim::SparseMode::Test;
using Show::PublishedSide;

// Every state of a route and of its interfaces.
void addShapes( SmTest::Vrf vrf ) {
   namespace Sm = Routing::Pim::SparseMode;
   auto wc = vrf.wc( "239.9.0.1" ).rpTree().rpf( "eth0" );
   auto sg = vrf.sg( "192.0.2.1", "239.9.0.1" ).rpf( "eth1" ).attached();
   sg.prevRpf( "eth2" ).rpfFrr( SmTest::rpfBy( "eth3" ) ).mbr( "eth4" ).upJoined();
   sg->routeFlagsIs( Sm::Route::RouteFlags( Sm::Route::RouteFlags::limit ) );
   int next = 0;
   const auto intf = [&]( SmTest::RouteBuilder route ) {
      return route.intf( "eth" + std::to_string( next++ % 10 ) );
   };
   for ( auto state :
         { Sm::Intf::noInfo, Sm::Intf::prunePending, Sm::Intf::joined } )
      intf( sg ).joinState( state ).include().exclude()->forwardIs( true );
   intf( sg ).lostAssert( "[R] 192.0.2.9 [2147483647/4294967295]" );
   intf( sg ).wonAssert( "[S] 192.0.2.8 [0/0]" )->toBeDeletedIs( true );
   for ( auto switched : { Sm::Route::notSwitching, Sm::Route::switchIifUpdated,
                           Sm::Route::wrongVifRecd, Sm::Route::intervalElapsed,
                           Sm::Route::hwSwitchComplete } ) {
      auto route =
         vrf.sg( "192.0.2." + std::to_string( 10 + next++ ), "239.9.0.1" );
      route.iifSwitching( switched )->iifSwitchPendingIs( true );
      for ( auto state :
            { Sm::upRptNotPruned, Sm::upRptNotJoined, Sm::upRptPruned } )
         vrf.sg( "192.0.2." + std::to_string( 100 + next++ ), "239.9.0.1" )
            .upRpt( state );
   }
   for ( auto state :
         { Sm::Intf::rptNoInfo, Sm::Intf::rptPruned, Sm::Intf::rptPrunePending,
           Sm::Intf::rptPruneTemp, Sm::Intf::rptPrunePendingTemp } ) {
      auto pruned = intf( vrf.sg( "192.0.2.99", "239.9.0.1" ).rpTree() );
      pruned.rptState( state )->lastRptPruneReceivedIs( 1 );
      wc.intf( pruned->intfId().name() ).joined();
   }
   // Each thing that keeps an interface out.
   auto kept = vrf.sg( "192.0.2.98", "239.9.0.1" ).spTree().rpf( "eth9" );
   for ( const char* name : { "eth7", "eth8", "eth9" } ) kept.intf( name );
   kept.intf( "eth8" ).joined().lostAssertTo( "192.0.2.66" );
   auto excluded = vrf.sg( "192.0.2.97", "239.9.0.1" );
   excluded.intf( "eth3" ).exclude();
   wc.intf( "eth3" ).include();
   excluded.intf( "eth4" ).lostAssertTo( "192.0.2.66" );
   wc.intf( "eth4" ).joined();
   excluded.intf( "eth5" );
   wc.intf( "eth5" ).joined().lostAssertTo( "192.0.2.66" );
}

void changesFrom( std::istream& in, Show::ShownRouter& router ) {
   const auto fileOf = [&]( const std::string& entity, const char* table ) {
      return router.root.path() + '/' + entity + '/' + table;
   };
   std::optional<PublishedSide> blue;
   const auto family = ::Published::FamilyStatus::mountPath(
      Vantu::AddressFamily::ipv4, L3::VrfName( "default" ) );
   const auto toggle = [&] {
      auto eth3 =
         router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" ).intf( "eth3" );
      eth3->forwardIs( !eth3->forward() );
   };
   const std::map<std::string, std::function<void()>> changes = {
      { "interfaces", [&] { router.publishInterfaces(); } },
      { "groups", [&] { router.publishGroups(); } },
      { "process", [&] { router.publishProcess(); } },
      { "traffic", [&] { router.publishTraffic(); } },
      { "shapes", [&] { addShapes( router.ipv4.vrf() ); } },
      { "toggle", toggle },
      { "toggle with reason",
        [&] {
           toggle();
           ::Published::EventLog log( router.ipv4.manager, ::Published::agentLog,
                                      router.clock, 16 );
           ::Published::Event event{ .at = Show::monotonicNow(),
                                     .kind = ::Published::memberExcludes };
           event.vrf = ::Published::Text<104>( "default" );
           event.ipVersion = 4;
           event.intf = SmTest::intfId( "eth3" );
           event.group = SmTest::addr( "239.1.2.3" );
           event.source = SmTest::addr( "198.51.100.7" );
           event.address = SmTest::addr( "192.0.2.77" );
           log.add( event );
        } },
      { "delete",
        [&] { router.ipv4.vrf()->routeDel( SmTest::wcKey( "239.1.10.1" ) ); } },
      { "gone", [&] { router.end(); } },
      { "remove red",
        [&] {
           router.red.manager.removeTables( router.red.path );
           router.red.writer.reset();
        } },
      { "add blue",
        [&] {
           blue.emplace( router.clock, router.root.path(),
                         Vantu::AddressFamily::ipv4, "blue" );
           blue->vrf().wc( "239.7.7.7" ).rpf( "eth0" );
           blue->publish();
        } },
      { "red source",
        [&] {
           router.red.vrf().sg( "192.0.2.9", "239.5.5.5" ).spTree().rpf( "eth7" );
        } },
      { "break interface",
        [&] {
           Mox::Test::breakRecord( fileOf( family, "interface" ),
                                   SmTest::intfId( "eth3" ), 64 );
        } },
      { "break route",
        [&] {
           Mox::Test::breakSlot( fileOf( router.ipv4.path, "route" ),
                                 SmTest::sgKey( "203.0.113.9", "239.0.0.1" ),
                                 Mox::Test::kBeforeRecord + 5 );
        } },
   };
   std::cout << "filled" << std::endl;
   for ( std::string line; std::getline( in, line ); ) {
      changes.at( line )();
      for ( PublishedSide* side : { &router.ipv4, &router.ipv6, &router.red } )
         if ( side->writer != nullptr ) side->publish();
      std::cout << line << std::endl;
   }
}

}

int main( int, char** arguments ) {
   Show::ShownRouter router( arguments[1] );
   changesFrom( std::cin, router );
}
