#include "apps/agent/engine/ForwardingEngine.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/VrfBuilder.h"

namespace Agent {
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
   // The records of a route in order, in brackets those that do not forward.
   static std::string records( const Route& route ) {
      std::vector<std::string> names;
      for ( const Intf& intf : route.routeIntf() ) {
         std::string name( intf.intfId().name() );
         names.push_back( intf.forward() ? name : "[" + name + "]" );
      }
      auto bare = []( const std::string& name ) {
         return name.front() == '[' ? name.substr( 1 ) : name;
      };
      std::sort( names.begin(), names.end(), [&]( const auto& a, const auto& b ) {
         return bare( a ) < bare( b );
      } );
      std::string out;
      for ( const std::string& name : names )
         out += ( out.empty() ? "" : " " ) + name;
      return out;
   }
   std::string wcRecords() { return records( *wc() ); }
   std::string sgRecords() {
      return records( *vrf->route( sgKey( kSource, kGroup ) ) );
   }

   Vrf vrf;
   ForwardingEngine engine{ vrf.ptr() };
};

TEST_F( Forwarding, SharedTreeServesJoinsAndMembersButNotItsOwnInterface ) {
   wc().intf( "eth0" ).joined();
   wc().intf( "eth1" ).prunePending();
   wc().intf( "eth2" ).include();
   wc().intf( "eth3" ).include();
   wc().intf( "eth4" ).joined().lostAssertTo( "192.0.2.9" );
   vrf.pimIntf( "eth3", "192.0.2.5", false );
   review();
   EXPECT_EQ( wcRecords(), "[eth0] eth1 eth2 [eth3] [eth4]" );
   EXPECT_EQ( wc()->upJoinState(), upJoined );
}

TEST_F( Forwarding, SourceTreeTakesTheSharedTreesInterfacesOver ) {
   wc().intf( "eth1" ).joined();
   wc().intf( "eth2" ).joined();
   wc().intf( "eth9" ).joined();
   sg().intf( "eth2" ).rptPruned();
   sg().intf( "eth3" ).joined();
   review();
   EXPECT_EQ( sgRecords(), "eth1 [eth2] eth3 [eth9]" );
   EXPECT_TRUE( sg()->routeIntf( intfId( "eth1" ) )->initialized() );

   // While on the shared tree, own joins are not served yet.
   sg().spTree( false );
   review();
   EXPECT_EQ( sgRecords(), "eth1 [eth2] [eth3] [eth9]" );

   // With the (*,G) records go those that only stood for them.
   vrf->routeDel( wcKey( kGroup ) );
   sg();
   review();
   EXPECT_EQ( sgRecords(), "[eth2] eth3" );
}

// Each change alone must mark the group.
TEST_F( Forwarding, FollowsEveryInput ) {
   wc().intf( "eth1" ).joined();
   sg().intf( "eth2" ).joined();
   review();
   ASSERT_EQ( sgRecords(), "eth1 eth2" );
   auto expect = [&]( const char* records, const char* what ) {
      EXPECT_TRUE( engine.pending() ) << what;
      review();
      EXPECT_EQ( sgRecords(), records ) << what;
   };
   auto own = [&] { return sg().intf( "eth2" ); };
   own().joinState( Intf::noInfo );
   own().include();
   expect( "eth1 eth2", "member instead of join" );
   vrf.pimIntf( "eth2", "192.0.2.5", false );
   expect( "eth1 [eth2]", "DR role" );
   own().lostAssert( "[S] 192.0.2.6 [1/1]" );
   vrf.pimIntf( "eth2", "192.0.2.6", false );
   expect( "eth1 eth2", "address: the winner is me" );
   own().include( false );
   own().joined().lostAssert( "[S] 192.0.2.7 [1/1]" );
   expect( "eth1 [eth2]", "assert" );
   own().noAssert();
   sg().intf( "eth1" ).rptPruned();
   expect( "[eth1] eth2", "(S,G,rpt) prune" );
   sg().intf( "eth1" ).rptState( Intf::rptNoInfo );
   sg().rpf( "eth2" );
   expect( "eth1 [eth2]", "RPF interface" );
   sg().mbr( "eth1" );
   expect( "[eth1] eth2", "border router's interface" );
   sg()->mbrIs( false );
   sg()->umhDel();
   sg().rpf( "eth9" );
   expect( "eth1 eth2", "another upstream record" );
   vrf->pimStatusIs( nullptr );
   expect( "eth1 eth2", "no PIM interfaces known" );
}

TEST_F( Forwarding, UpstreamStatesFollowTheMacros ) {
   wc().intf( "eth1" ).joined();
   auto source = sg().spTree( false );
   source.intf( "eth1" );
   review();
   EXPECT_EQ( source->upJoinState(), upNotJoined );
   EXPECT_EQ( source->upRptState(), upRptNotPruned );
   source.intf( "eth1" ).rptPruned();
   source.intf( "eth2" ).rptPruned();
   review();
   EXPECT_EQ( source->upRptState(), upRptPruned );
   EXPECT_EQ( source->prevRptState(), upRptNotPruned );
   wc().intf( "eth1" ).joinState( Intf::noInfo );
   source.intf( "eth2" ).joined();
   review();
   EXPECT_EQ( source->upRptState(), upRptNotJoined );
   EXPECT_EQ( source->upJoinState(), upJoined );
   EXPECT_EQ( wc()->upJoinState(), upNotJoined );
}

TEST_F( Forwarding, FastForwardsWhereThereIsABackupPath ) {
   sg().intf( "eth1" ).joined();
   sg().intf( "eth2" ).joined();
   review();
   EXPECT_FALSE( sg().intf( "eth1" )->fastForward() );
   sg().rpfFrr( "eth2" );
   review();
   EXPECT_TRUE( sg().intf( "eth1" )->fastForward() );
   EXPECT_FALSE( sg().intf( "eth2" )->fastForward() );
   EXPECT_TRUE( sg().intf( "eth2" )->forward() );
}

TEST_F( Forwarding, ReviewsInSlicesAndTakesUpWhatStands ) {
   for ( const char* group : { "233.252.0.1", "233.252.0.2", "233.252.0.3" } )
      vrf.wc( group ).rpf( "eth0" ).intf( "eth1" ).joined();
   review();
   ForwardingEngine second( vrf.ptr() );
   vrf.wc( kGroup ).intf( "eth1" )->forwardIs( false );
   unsigned slices = 1;
   while ( !second.review( [] { return true; } ) ) ++slices;
   EXPECT_EQ( slices, 3u );
   EXPECT_EQ( wcRecords(), "eth1" );
}

}
}
