#include "engine/ForwardingEngine.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode;
using namespace Routing::Pim::SparseMode::Test;

const char* const kSource = "192.0.2.1";
const char* const kGroup = "233.252.0.1";

// The RP is behind eth0, the source behind eth9; eth1 to eth4 are downstream.
class Forwarding : public testing::Test {
 protected:
   Forwarding() {
      for ( const char* name : { "eth0", "eth1", "eth2", "eth3", "eth4", "eth9" } )
         vrf.pimIntf( name, "192.0.2.5", true );
   }
   RouteBuilder wc() { return vrf.wc( kGroup ).rpf( "eth0" ); }
   RouteBuilder sg() { return vrf.sg( kSource, kGroup ).rpf( "eth9" ).spTree(); }

   void review() {
      engine.review( [] { return false; } );
      EXPECT_FALSE( engine.pending() );
   }
   // The source's records in order; those that do not forward in brackets.
   std::string sgRecords() {
      std::map<std::string, bool> forward;
      for ( const Intf& intf : vrf->route( sgKey( kSource, kGroup ) )->routeIntf() )
         forward[std::string( intf.intfId().name() )] = intf.forward();
      std::string out;
      for ( const auto& [name, is] : forward )
         out += ( out.empty() ? "" : " " ) + ( is ? name : "[" + name + "]" );
      return out;
   }

   Vrf vrf;
   ForwardingEngine engine{ vrf.ptr() };
};

TEST_F( Forwarding, SourceTreeTakesTheSharedTreesInterfacesOver ) {
   wc().intf( "eth1" ).joined();
   wc().intf( "eth2" ).joined();
   wc().intf( "eth9" ).joined();
   sg().intf( "eth2" ).rptPruned();
   sg().intf( "eth3" ).joined();
   review();
   EXPECT_EQ( sgRecords(), "eth1 [eth2] eth3 [eth9]" );
   EXPECT_TRUE( sg()->routeIntf( intfId( "eth1" ) )->initialized() );

   // On the shared tree the source's own joins do not count yet, and traffic comes
   // in by eth0.
   wc().intf( "eth0" ).joined();
   sg().spTree( false );
   review();
   EXPECT_EQ( sgRecords(), "[eth0] eth1 [eth2] [eth3] eth9" );

   // Records that only stood for (*,G) records go with them.
   vrf->routeDel( wcKey( kGroup ) );
   sg();
   review();
   EXPECT_EQ( sgRecords(), "[eth2] eth3" );
}

// One change at a time: each must mark the route, and be followed.
TEST_F( Forwarding, FollowsEveryInput ) {
   wc().intf( "eth1" ).joined();
   sg().intf( "eth2" ).joined();
   review();
   ASSERT_EQ( sgRecords(), "eth1 eth2" );
   Route& source = *sg();
   Intf& own = *source.routeIntf( intfId( "eth2" ) );
   Intf& inherited = *source.routeIntf( intfId( "eth1" ) );
   auto pim = [&]( const char* name ) { return vrf.pim()->intf( intfId( name ) ); };
   auto member = [&] { return source.routeIntfIs( intfId( "eth2" ) ); };
   auto shared = [&] { return wc().intf( "eth1" ); };
   const Routing::Pim::IntfAddr six{ addr( "192.0.2.6" ), 24 };
   const AssertInfo won{ iAmAssertWinner, assertMetric( "[S] 192.0.2.5 [1/1]" ) };
   struct Step {
      std::function<void()> change;
      const char* records;
   };
   // As engines do that set states on interface records.
   auto tell = [&]( const Routing::Pim::RouteKey& key ) {
      engine.handleRecord( key );
   };
   const Step steps[] = {
      { [&] {
          own.joinStateIs( Intf::noInfo );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1" },
      { [&] {
          member()->localReceiverIncludeIs( true );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1 eth2" },
      { [&] { pim( "eth2" )->iAmDrIs( false ); }, "eth1 [eth2]" },
      { [&] {
          member()->assertInfoIs( won );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1 eth2" },
      { [&] { pim( "eth2" )->addrIs( six ); }, "eth1 [eth2]" },
      { [&] {
          member()->assertInfoIs( {} );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1 [eth2]" },
      { [&] { vrf.pim()->intfDel( intfId( "eth2" ) ); }, "eth1 eth2" },
      // An interface without address is its own assert winner.
      { [&] { vrf.pim()->intfIs( intfId( "eth2" ) ); }, "eth1 eth2" },
      { [&] { pim( "eth2" )->addrIs( six ); }, "eth1 [eth2]" },
      { [&] { vrf->pimStatusIs( nullptr ); }, "eth1 eth2" },
      { [&] { vrf->pimStatusIs( vrf.pim() ); }, "eth1 [eth2]" },
      { [&] { pim( "eth2" )->iAmDrIs( true ); }, "eth1 eth2" },
      { [&] {
          inherited.rptStateIs( Intf::rptPruned );
          tell( sgKey( kSource, kGroup ) );
       },
        "[eth1] eth2" },
      { [&] {
          inherited.rptStateIs( Intf::rptNoInfo );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1 eth2" },
      { [&] {
          shared().include();
          tell( wcKey( kGroup ) );
       },
        "eth1 eth2" },
      { [&] {
          shared().joinState( Intf::noInfo );
          tell( wcKey( kGroup ) );
       },
        "eth1 eth2" },
      { [&] {
          inherited.localReceiverExcludeIs( true );
          tell( sgKey( kSource, kGroup ) );
       },
        "[eth1] eth2" },
      { [&] {
          inherited.localReceiverExcludeIs( false );
          tell( sgKey( kSource, kGroup ) );
       },
        "eth1 eth2" },
      { [&] {
          shared().lostAssert( "[S] 192.0.2.7 [1/1]" );
          tell( wcKey( kGroup ) );
       },
        "[eth1] eth2" },
      { [&] {
          shared().noAssert();
          tell( wcKey( kGroup ) );
       },
        "eth1 eth2" },
      { [&] { source.umh()->rpfIs( rpfBy( "eth2" ) ); }, "eth1 [eth2]" },
      { [&] { source.iifSwitchingIs( true ); }, "eth1 [eth2]" },
      { [&] { source.iifSwitchStateIs( Route::switchIifUpdated ); }, "eth1 eth2" },
      { [&] { source.umh()->prevRpfIs( rpfBy( "eth1" ) ); }, "[eth1] eth2" },
      { [&] { source.mbrIs( true ); }, "eth1 eth2" },
      { [&] { source.umh()->mbrIifIs( intfId( "eth2" ) ); }, "eth1 [eth2]" },
      { [&] { source.umhDel(); }, "eth1 eth2" },
      { [&] { source.umhIs(); }, "eth1 eth2" },
      { [&] { source.umh()->routeIs( &source ); }, "eth1 eth2" },
      { [&] { source.umh()->mbrIifIs( intfId( "eth1" ) ); }, "[eth1] eth2" },
      { [&] { source.spTreeIs( false ); }, "[eth1] [eth2]" },
   };
   int number = 0;
   for ( const Step& step : steps ) {
      step.change();
      EXPECT_TRUE( engine.pending() ) << ++number;
      review();
      EXPECT_EQ( sgRecords(), step.records ) << number;
   }
}

// A record without effect is neither inherited nor repeatedly removed; one with an
// assert's state stays.
TEST_F( Forwarding, KeepsWhatHasStateAndComesToRest ) {
   wc().intf( "eth1" );
   sg().intf( "eth2" ).joined();
   sg().intf( "eth3" ).lostAssert( "[S] 192.0.2.6 [1/1]" );
   unsigned rounds = 0;
   EXPECT_TRUE( engine.review( [&] { return ++rounds > 100; } ) ) << rounds;
   EXPECT_EQ( sgRecords(), "eth2 [eth3]" );
   // Changes after the last review are found, too.
   wc().intf( "eth4" ).joined();
   review();
   EXPECT_EQ( sg()->upRptState(), upRptPruned );
   sg().intf( "eth2" ).include();
   review();
   EXPECT_EQ( sg()->prevRptState(), upRptNotJoined );
}

TEST_F( Forwarding, UpstreamStatesFollowTheMacros ) {
   wc().intf( "eth1" ).joined();
   auto source = sg().spTree( false );
   source.intf( "eth1" );
   review();
   EXPECT_EQ( wc()->upJoinState(), upJoined );
   EXPECT_EQ( source->upJoinState(), upNotJoined );
   EXPECT_EQ( source->upRptState(), upRptNotPruned );
   source.intf( "eth1" ).rptPruned();
   source.intf( "eth2" ).rptPruned();
   engine.handleRecord( source->key() );
   review();
   EXPECT_EQ( source->upRptState(), upRptPruned );
   EXPECT_EQ( source->prevRptState(), upRptNotPruned );
   wc().intf( "eth1" ).joinState( Intf::noInfo );
   source.intf( "eth2" ).joined();
   engine.handleRecord( wcKey( kGroup ) );
   review();
   EXPECT_EQ( source->upRptState(), upRptNotJoined );
   EXPECT_EQ( source->upJoinState(), upJoined );
   EXPECT_EQ( wc()->upJoinState(), upNotJoined );
}

TEST_F( Forwarding, FastForwardsWhereThereIsABackupPath ) {
   sg().intf( "eth1" ).joined();
   sg().intf( "eth2" ).joined();
   sg().intf( "eth9" ).joined();
   auto fast = [&]( const char* intf ) {
      review();
      return sg()->routeIntf( intfId( intf ) )->fastForward();
   };
   EXPECT_FALSE( fast( "eth1" ) );
   Mox::Ptr<UpstreamInfo> backup = sg()->umhFrrIs();
   backup->routeIs( sg().get() );
   backup->frrIs( true );
   EXPECT_FALSE( fast( "eth1" ) );
   backup->rpfIs( rpfBy( "eth2" ) );
   EXPECT_TRUE( fast( "eth1" ) );
   EXPECT_FALSE( fast( "eth2" ) );
   EXPECT_TRUE( sg()->routeIntf( intfId( "eth2" ) )->forward() );
   EXPECT_TRUE( fast( "eth9" ) ) << "traffic does not come in there then";
   sg()->umhFrrDel();
   EXPECT_FALSE( fast( "eth1" ) );

   // An RPF from before the engine is followed as well.
   sg().rpfFrr( "eth2" );
   ForwardingEngine second( vrf.ptr() );
   second.review( [] { return false; } );
   sg()->umhFrr()->rpfIs( rpfBy( "eth1" ) );
   EXPECT_TRUE( second.review( [] { return false; } ) );
   EXPECT_FALSE( sg()->routeIntf( intfId( "eth1" ) )->fastForward() );
   EXPECT_TRUE( sg()->routeIntf( intfId( "eth2" ) )->fastForward() );
}

// Nothing is lost when the time is up, and a constantly marked route does not delay
// the others.
TEST_F( Forwarding, ReviewsInSlices ) {
   const char* const groups[] = { "233.252.0.1", "233.252.0.2", "233.252.0.3" };
   for ( const char* group : groups )
      vrf.wc( group ).rpf( "eth0" ).intf( "eth1" ).joined();
   review();
   for ( const char* group : groups )
      vrf.wc( group ).intf( "eth1" )->forwardIs( false );
   ForwardingEngine second( vrf.ptr() );
   unsigned slices = 1;
   while ( !second.review( [&] {
      vrf.wc( groups[0] ).intf( "eth2" )->localReceiverIncludeIs( slices % 2 != 0 );
      return true;
   } ) && slices < 4 )
      ++slices;
   for ( const char* group : groups )
      EXPECT_TRUE( vrf.wc( group ).intf( "eth1" )->forward() ) << group;
}

}
}
