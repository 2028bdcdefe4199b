// A VRF, a route or a record goes while other objects observe it or hold parts of
// it. Under the address sanitizer these tests also catch dangling pointers.

#include <gtest/gtest.h>

#include <optional>

#include "tests/support/ModelRecorders.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

TEST( StatusTeardown, RemovesRoutesThenSourcesAndThenForgetsItsObservers ) {
   std::optional<Vrf> vrf( std::in_place );
   vrf->wc( "233.252.0.1" );
   ( *vrf )->sourceIs( addr( "192.0.2.2" ) );
   ( *vrf )->sourceIs( addr( "192.0.2.1" ) );
   StatusRecorder recorder( vrf->get() );
   vrf.reset();
   EXPECT_EQ( recorder.take(),
              ( Heard{ "route (*, 233.252.0.1)", "source 192.0.2.1",
                       "source 192.0.2.2" } ) );
   EXPECT_EQ( recorder.notifier(), nullptr );
}

TEST( StatusTeardown, AHeldRouteLosesItsStatusAndReadsItAsAbsent ) {
   std::optional<Vrf> vrf( std::in_place );
   auto wc = vrf->wc( "233.252.0.1" ).rpf( "eth1" );
   auto sg = vrf->sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" ).switching();
   auto removed = vrf->sg( "192.0.2.2", "233.252.0.1" );
   ( *vrf )->routeDel( removed->key() );
   EXPECT_EQ( removed->wc(), wc.get() );
   vrf.reset();
   for ( const Route* route : { wc.get(), sg.get(), removed.get() } ) {
      EXPECT_EQ( route->pimsmStatus(), nullptr );
      EXPECT_EQ( route->wc(), nullptr );
   }
   EXPECT_EQ( sg->rpfWc(), Rpf() );
   EXPECT_EQ( sg->iif(), intfId( "eth0" ) );
}

// A removed route that is released before its Status must be forgotten there.
TEST( StatusTeardown, RemovedRoutesMayGoInAnyOrder ) {
   Vrf vrf;
   std::vector<Mox::Ptr<Route>> held;
   // Few, and more than are looked through one by one.
   for ( int i = 0; i < 40; ++i )
      held.push_back( vrf.wc( "233.252.0." + std::to_string( i ) ).ptr() );
   vrf->routeDelAll();
   held.erase( held.begin() );
   vrf.wc( "233.252.0.2" );
   while ( held.size() > 1 ) held.erase( held.begin() + held.size() / 2 );
   Mox::Ptr<Route> last = held.front();
   held.clear();
   vrf.release();
   EXPECT_EQ( last->pimsmStatus(), nullptr );
}

// A route that an observer adds while the VRF goes is dropped silently.
TEST( StatusTeardown, ARouteAddedMeanwhileGoesWithTheShell ) {
   std::optional<Vrf> vrf( std::in_place );
   vrf->wc( "233.252.0.1" );
   Status* status = vrf->get();
   StatusRecorder recorder( status );
   Mox::Ptr<Route> late;
   recorder.inside = [&]( const Mox::String& ) {
      recorder.inside = nullptr;
      late = status->routeIs( wcKey( "233.252.0.9" ) );
   };
   vrf.reset();
   EXPECT_EQ( recorder.take(),
              ( Heard{ "route (*, 233.252.0.1)", "route (*, 233.252.0.9)" } ) );
   ASSERT_NE( late, nullptr );
   EXPECT_EQ( late->pimsmStatus(), nullptr );
}

class RouteTeardown : public testing::Test {
 protected:
   Vrf vrf;

   // Only the VRF holds the route then.
   Route* make() {
      auto route =
         vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" ).rpfFrr( "eth2" );
      route.intf( "eth1" );
      return route.get();
   }
   void remove( const Route* route ) { vrf->routeDel( RouteKey( route->key() ) ); }
};

TEST_F( RouteTeardown, RemovesMainAndBackupRecordThenInterfaces ) {
   Route* route = make();
   RouteRecorder recorder( route );
   remove( route );
   EXPECT_EQ( recorder.take(), ( Heard{ "umh", "umhFrr", "routeIntf 'eth1'" } ) );
   EXPECT_EQ( recorder.notifier(), nullptr );
}

TEST_F( RouteTeardown, HeldPartsForgetTheRoute ) {
   Route* route = make();
   Mox::Ptr<UpstreamInfo> main = route->umh(), backup = route->umhFrr();
   Mox::Ptr<Intf> intf = route->routeIntf( intfId( "eth1" ) );
   Mox::Ptr<Intf> removed = route->routeIntfIs( intfId( "eth3" ), route );
   route->routeIntfDel( intfId( "eth3" ) );
   UpstreamRecorder onMain( main.get() );
   remove( route );
   EXPECT_EQ( main->route(), nullptr );
   EXPECT_EQ( backup->route(), nullptr );
   EXPECT_EQ( intf->parentRoute(), nullptr );
   EXPECT_EQ( removed->parentRoute(), nullptr );
   EXPECT_EQ( onMain.take(), Heard{ "route" } );
   EXPECT_EQ( main->iif(), intfId( "Null0" ) );
   EXPECT_EQ( backup->iif(), intfId( "Null0" ) );
}

// The observer of one record sees that the other has forgotten the route as well,
// and may release it.
TEST_F( RouteTeardown, AHeldRecordMayGoWhileAnotherIsTold ) {
   Route* route = make();
   Mox::Ptr<UpstreamInfo> main = route->umh(), backup = route->umhFrr();
   UpstreamRecorder onMain( main.get() ), onBackup( backup.get() );
   auto letGoOf = [&]( Mox::Ptr<UpstreamInfo>& other ) {
      return [&]( const Mox::String& ) {
         if ( other == nullptr ) return;
         EXPECT_EQ( other->iif(), intfId( "Null0" ) );
         other.reset();
      };
   };
   onMain.inside = letGoOf( backup );
   onBackup.inside = letGoOf( main );
   remove( route );
   EXPECT_EQ( onMain.take(), Heard{ "route" } );
   EXPECT_EQ( onBackup.take(), Heard{ "route" } );
}

// An interface may stand in the collection of another route than its parent.
TEST_F( RouteTeardown, AnInterfaceOutlivesAParentElsewhere ) {
   Route* parent = make();
   auto holder = vrf.wc( "233.252.0.1" );
   Mox::Ptr<Intf> intf = holder->routeIntfIs( intfId( "eth1" ), parent );
   EXPECT_EQ( intf->parentRoute(), parent );
   auto brief = vrf.wc( "233.252.0.2" );
   Mox::Ptr<Intf> lent = brief->routeIntfIs( intfId( "eth2" ), parent );
   brief->routeIntfDel( intfId( "eth2" ) );
   vrf->routeDel( brief->key() );
   brief.release();
   EXPECT_EQ( lent->parentRoute(), parent );
   remove( parent );
   EXPECT_EQ( intf->parentRoute(), nullptr );
   EXPECT_EQ( holder->routeIntfDel( intfId( "eth1" ) ), intf );
}

TEST_F( RouteTeardown, AnUpstreamRecordMovesBetweenRoutes ) {
   Route* first = make();
   auto second = vrf.wc( "233.252.0.1" );
   Mox::Ptr<UpstreamInfo> upstream = first->umh();
   upstream->routeIs( second.get() );
   remove( first );
   EXPECT_EQ( upstream->route(), second.get() );
   vrf->routeDel( second->key() );
   second.release();
   EXPECT_EQ( upstream->route(), nullptr );
}

}
}
