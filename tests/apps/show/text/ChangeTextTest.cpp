#include "apps/show/text/ChangeText.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/apps/json/Watching.h"

namespace Show {
namespace {

using SmTest::intfId;
using SmTest::rpfBy;
using SmTest::sgKey;
using SmTest::wcKey;

class ChangeText : public Watching {
 protected:
   // The next lines, until there are `wanted` of them, or the deadline.
   std::string lines( size_t wanted ) {
      std::string out;
      until( [&] {
         for ( const Change& change : feed.take( {}, mirrors.now() + ahead ) ) {
            out += text( change );
            last = change;
            if ( --wanted == 0 ) break;
         }
         return wanted == 0;
      } );
      return out;
   }

   // All changes that match the filter. The last writes change times alone, which
   // are no change.
   std::string told( const RouteFilter& filter = {} ) {
      const auto key = sgKey( "203.0.113.9", "239.0.0.1" );
      const Vantu::IntfId eth4 = intfId( "eth4" );
      ++stamp;
      write( key, [&]( RouteRecord& route ) { route.creationTime = stamp; } );
      write( key, "eth4",
             [&]( IntfRecord& intf ) { intf.lastJoinReceived = stamp; } );
      const Route& mirrored = *mirrors.all()[0]->model->route( key );
      until( [&] {
         return mirrored.creationTime() == stamp &&
                mirrored.routeIntf( eth4 )->lastJoinReceived() == stamp;
      } );
      std::string out;
      for ( const Change& change : feed.take( filter, mirrors.now() ) )
         if ( change.op != std::string_view( "sweep" ) ) out += text( change );
      return out;
   }

   ChangeFeed feed{ *mirrors.all()[0], false, [] {} };
   double ahead = 0.0;  // s, of the real clock
   double stamp = 1.0;
   Change last{};  // of lines()

 private:
   std::string text( const Change& change ) const {
      return changeText( feed.mirror(), change, kTime ).substr( 26 ) + '\n';
   }
};

TEST_F( ChangeText, TellsEveryMemberThatDiffers ) {
   const auto eth4 = [this]( auto edit ) {
      return [=, this] { write( sg, "eth4", edit ); };
   };
   const auto route = [this]( auto edit ) {
      return [=, this] { write( sg, edit ); };
   };
   const std::string entry = " (198.51.100.7, 239.1.2.3): ",
                     rpt = " (198.51.100.7, 239.1.2.3, rpt)",
                     intf = " (198.51.100.7, 239.1.2.3) eth4: ";
   const std::pair<std::function<void()>, std::string> rows[] = {
      { route( []( RouteRecord& r ) { r.rpf.metric = { 30 }; } ),
        "update" + entry + "rpf metric 20 -> 30\n" },
      { route( []( RouteRecord& r ) { r.rpfAttached = true; } ),
        "update" + entry +
           "rpf-neighbor 192.0.2.5 -> none, rpf attached no -> yes\n" },
      { route( []( RouteRecord& r ) { r.rpfAttached = false; } ),
        "update" + entry +
           "rpf attached yes -> no, rpf-neighbor none -> 192.0.2.5\n" },
      { route( []( RouteRecord& r ) { r.prevRpf = rpfBy( "eth6" ); } ),
        "update" + entry +
           "previous-rpf interface none -> eth6, previous-rpf neighbor none -> "
           "192.0.2.254, previous-rpf attached none -> no, previous-rpf preference "
           "none -> 110, previous-rpf metric none -> 20\n" },
      { route( []( RouteRecord& r ) { r.mbrIif = intfId( "eth6" ); } ),
        "update" + entry + "border-router-interface none -> eth6\n" },
      { route( []( RouteRecord& r ) { r.iifSwitchPending = true; } ),
        "update" + entry + "interface-switch pending no -> yes\n" },
      { route( []( RouteRecord& r ) { r.routeFlags.drDiscoveredIs( true ); } ),
        "update" + entry +
           "flags sp-tree kat-expired -> sp-tree kat-expired dr-discovered\n" },
      { route( []( RouteRecord& r ) {
           r.upRptState = Routing::Pim::SparseMode::upRptNotPruned;
        } ),
        "add" + rpt +
           ": incoming-interface eth0, rpf-neighbor 192.0.2.1, "
           "upstream-rpt-state not-pruned\n" },
      { eth4( []( IntfRecord& r ) { r.rptState = Intf::rptPruned; } ),
        "add" + rpt + " eth4: rpt-state pruned\n" },
      { eth4( []( IntfRecord& r ) { r.rptState = Intf::rptNoInfo; } ),
        "delete" + rpt + " eth4\n" },
      { eth4( []( IntfRecord& r ) { r.fastForward = true; } ),
        "update" + intf + "fast-failover-forwarding no -> yes\n" },
      { eth4( []( IntfRecord& r ) {
           r.assertInfo = { Routing::Pim::SparseMode::iAmAssertLoser,
                            SmTest::assertMetric( "[S] 192.0.2.66 [90/20]" ) };
        } ),
        "update" + intf +
           "assert-state no-info -> i-am-assert-loser, assert-winner address none "
           "-> 192.0.2.66, assert-winner rpt-bit none -> no, assert-winner "
           "preference none -> 90, assert-winner metric none -> 20\n" },
      // Along the shared tree, and together with it.
      { route( []( RouteRecord& r ) { r.routeFlags.spTreeIs( false ); } ),
        "update" + entry +
           "is-spt yes -> no, incoming-interface eth1 -> eth0, rpf-neighbor "
           "192.0.2.5 -> 192.0.2.1\n" },
      { [this] {
          write( wc, []( RouteRecord& r ) { r.rpf.intfId = intfId( "eth8" ); } );
       },
        "update (*, 239.1.2.3): incoming-interface eth0 -> eth8\n"
        "update" +
           entry + "incoming-interface eth0 -> eth8\n" + "update" + rpt +
           ": incoming-interface eth0 -> eth8\n"
           "update (198.51.100.9, 239.1.2.3): incoming-interface eth0 -> eth8\n"
           "update (198.51.100.9, 239.1.2.3, rpt): incoming-interface eth0 -> "
           "eth8\n" },
      // A shared tree without a path has none to show, until it goes.
      { [this] {
          router.ipv4.tables->routeDel( sg );
          write( wc, []( RouteRecord& r ) { r.rpf = {}; } );
       },
        "update (*, 239.1.2.3): incoming-interface eth8 -> none, rpf-neighbor "
        "192.0.2.1 -> none, rpf attached no -> none, rpf preference 110 -> none, "
        "rpf metric 20 -> none\n"
        "delete (198.51.100.7, 239.1.2.3)\n"
        "delete" +
           rpt +
           "\n"
           "update (198.51.100.9, 239.1.2.3): incoming-interface eth8 -> none, "
           "rpf-neighbor 192.0.2.1 -> none\n"
           "update (198.51.100.9, 239.1.2.3, rpt): incoming-interface eth8 -> "
           "none, rpf-neighbor 192.0.2.1 -> none\n" },
      { [this] { router.ipv4.tables->routeDel( wc ); },
        "delete (*, 239.1.2.3)\n"
        "update (198.51.100.9, 239.1.2.3): incoming-interface none -> eth9, "
        "rpf-neighbor none -> 203.0.113.131\n" } };
   for ( const auto& [edit, expected] : rows ) {
      edit();
      EXPECT_EQ( told(), expected );
   }
}

// Changes match by their state before or after, deletions included.
TEST_F( ChangeText, FiltersByBeforeAndAfter ) {
   const auto forward = [this]( const char* intf, bool on ) {
      write( sg, intf, [on]( IntfRecord& r ) { r.forward = on; } );
   };
   const auto spTree = [this]( bool on ) {
      write( sg, [on]( RouteRecord& r ) { r.routeFlags.spTreeIs( on ); } );
   };
   const auto joined = [this]( const Routing::Pim::RouteKey& key, bool on ) {
      write( key, [on]( RouteRecord& r ) {
         r.upJoinState = on ? Routing::Pim::SparseMode::upJoined
                            : Routing::Pim::SparseMode::upNotJoined;
      } );
   };
   const auto bothJoined = [&]( bool on ) { joined( wc, on ), joined( sg, on ); };
   const auto by = []( auto set ) {
      RouteFilter filter;
      set( filter );
      return filter;
   };
   const RouteFilter forwarding = by( []( auto&f ) { f.forwarding = true; } ),
                     notForwarding = by( []( auto&f ) { f.forwarding = false; } ),
                     eth0 = by( []( auto&f ) { f.iif = "eth0"; } ),
                     eth1 = by( []( auto&f ) { f.iif = "eth1"; } );
   const std::string it = " (198.51.100.7, 239.1.2.3)",
                     left = ": upstream-join-state joined -> not-joined\n",
                     came = ": upstream-join-state not-joined -> joined\n";
   const std::tuple<RouteFilter, std::function<void()>, std::string> rows[] = {
      { forwarding, [&] { forward( "eth5", false ); },
        "update" + it + " eth5: forwarding yes -> no\n" },
      { notForwarding, [&] { forward( "eth5", true ); },
        "update" + it + " eth5: forwarding no -> yes\n" },
      { notForwarding, [&] { remove( sg, "eth5" ); }, "" },
      { forwarding, [&] { remove( sg, "eth4" ); }, "delete" + it + " eth4\n" },
      { forwarding, [&] { remove( sg, "eth3" ); }, "" },
      { eth1, [&] { spTree( false ); },
        "update" + it +
           ": is-spt yes -> no, incoming-interface eth1 -> eth0, rpf-neighbor "
           "192.0.2.5 -> 192.0.2.1\n" },
      { eth1, [&] { joined( sg, false ); }, "" },
      { eth0, [&] { joined( sg, true ); }, "update" + it + came },
      { by( []( auto& f ) { f.kind = "sg"; } ), [&] { bothJoined( false ); },
        "update" + it + left },
      { by( []( auto& f ) { f.kind = "wc"; } ), [&] { bothJoined( true ); },
        "update (*, 239.1.2.3)" + came },
      { by( []( auto& f ) { f.source = prefixArgument( "198.51.100.0/24" ); } ),
        [&] { bothJoined( false ); }, "update" + it + left },
      { by( []( auto& f ) { f.group = prefixArgument( "239.1.2.4" ); } ),
        [&] { bothJoined( true ); }, "" },
      { by( []( auto& f ) { f.iface = "eth5"; } ), [&] { bothJoined( false ); },
        "update (*, 239.1.2.3)" + left },
      { eth0,
        [&] {
           const auto key = wcKey( "239.1.10.1" );
           router.ipv4.tables->routeDel( key );
           remove( key, "Port-Channel20" );
           router.ipv4.tables->routeDel( sgKey( "198.51.100.9", "239.1.2.3" ) );
        },
        "delete (198.51.100.9, 239.1.2.3)\n"
        "delete (198.51.100.9, 239.1.2.3, rpt)\n"
        "delete (*, 239.1.10.1)\n"
        "delete (*, 239.1.10.1) Port-Channel20\n" } };
   for ( const auto& [filter, edit, expected] : rows ) {
      edit();
      EXPECT_EQ( told( filter ), expected );
   }
}

TEST_F( ChangeText, ARestartIsGoneAndBackAndWhatDiffers ) {
   router.ipv4.vrf()->routeDel( SmTest::wcKey( "239.1.10.1" ) );
   router.ipv4.publish();
   router.end();
   EXPECT_EQ( lines( 1 ), "writer-gone\n" );
   ahead += 2 * ChangeFeed::restartPause;  // for longer than the pause
   router.ipv4.mount();
   EXPECT_EQ( lines( 1 ), "writer-back\n" );
   const auto key = SmTest::wcKey( "239.1.10.1" );
   until( [&] { return mirrors.all()[0]->model->route( key ) == nullptr; } );
   EXPECT_TRUE( feed.take( {}, mirrors.now() + ahead ).empty() ) << "not at once";
   ahead += ChangeFeed::restartPause;
   EXPECT_EQ( lines( 1 ), "delete (*, 239.1.10.1)\n" );
}

// The tables of a VRF that goes lose their bell, too, which may be seen first.
TEST_F( ChangeText, AVrfThatGoesIsNoWriterThatDied ) {
   router.ipv4.manager.removeTables( router.ipv4.path );
   EXPECT_TRUE( feed.take( {}, mirrors.now() ).empty() );
   lines( 1 );
   EXPECT_STREQ( last.op, "vrf-gone" );
}

// Changes come faster than they are read: values are skipped, but never the last
// one, and a line reports it.
TEST_F( ChangeText, SaysThatItFellBehind ) {
   // A route alone waits, too.
   write( sg, []( RouteRecord& r ) { r.creationTime = 7; } );
   until( [&] { return feed.waiting(); } );
   auto route = router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" );
   for ( int i = 0; i < 100; ++i ) {
      route.intf( "eth3" )->forwardIs( i % 2 == 0 );
      router.ipv4.publish();
   }
   route.intf( "eth3" )->forwardIs( true );
   router.ipv4.publish();
   std::string told = lines( 2 );
   EXPECT_NE( told.find( "sweep: fell behind" ), std::string::npos ) << told;
   EXPECT_NE( told.find( "eth3: forwarding no -> yes\n" ), std::string::npos )
      << told;
}

}
}
