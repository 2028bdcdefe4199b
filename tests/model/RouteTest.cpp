#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/entity/Factory.h"
#include "tests/support/ErrorText.h"
#include "tests/support/ModelRecorders.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class RouteOfVrf : public testing::Test {
 protected:
   Vrf vrf;
};

TEST_F( RouteOfVrf, StartsWithItsDeliberateInitialValues ) {
   Mox::Ptr<Route> route = vrf->routeIs( sgKey( "192.0.2.1", "233.252.0.1" ) );
   EXPECT_EQ( route->routeFlags(), Route::RouteFlags( 0x40 ) );
   EXPECT_TRUE( route->nsfRpfResolved() );
   EXPECT_EQ( route->firstInactivityTime(), kInfinity );
   EXPECT_FALSE( route->initialized() );
   EXPECT_EQ( route->upJoinState(), upNotJoined );
   ASSERT_NE( route->umh(), nullptr );
   EXPECT_EQ( route->umh()->route(), route.get() );
   EXPECT_TRUE( route->umh()->notificationsEnabled() );
   EXPECT_EQ( route->upRptState(), upRptNotJoined );
   EXPECT_EQ( route->prevRptState(), upRptNotJoined );
   EXPECT_EQ( route->umhFrr(), nullptr );
   EXPECT_EQ( route->iif(), intfId( "Null0" ) );
   EXPECT_EQ( route->iifFrr(), intfId( "" ) );
   EXPECT_EQ( route->pimsmStatus(), vrf.get() );
}

// An observer notified of a route finds it complete, in its collection, and can
// observe it.
TEST_F( RouteOfVrf, IsCompleteAndObservableWhenItsCreationIsHeard ) {
   StatusRecorder recorder( vrf.get() );
   RouteRecorder onRoute;
   recorder.inside = [&]( const Mox::String& ) {
      Route* route = vrf->route( sgKey( "192.0.2.1", "233.252.0.1" ) );
      ASSERT_NE( route, nullptr );
      EXPECT_EQ( route->umh()->route(), route );
      onRoute.notifierIs( route );
      route->spTreeIs( true );
   };
   Mox::Ptr<Route> made = vrf->routeIs( sgKey( "192.0.2.1", "233.252.0.1" ) );
   EXPECT_EQ( recorder.take(), Heard{ "route (192.0.2.1, 233.252.0.1)" } );
   EXPECT_EQ( onRoute.take(), ( Heard{ "routeFlags", "spTree" } ) );
   EXPECT_EQ( vrf->routeIs( made->key() ), made );
   EXPECT_EQ( recorder.take(), Heard{} );
}

TEST_F( RouteOfVrf, RemovalTakesItOutAndLeavesItWhole ) {
   auto route = vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" );
   route.intf( "eth1" ).joined();
   StatusRecorder recorder( vrf.get() );
   RouteRecorder onRoute( route.get() );
   EXPECT_EQ( vrf->routeDel( sgKey( "192.0.2.1", "233.252.0.2" ) ), nullptr );
   EXPECT_EQ( recorder.take(), Heard{} );
   EXPECT_EQ( vrf->routeDel( route->key() ), route.ptr() );
   EXPECT_EQ( recorder.take(), Heard{ "route (192.0.2.1, 233.252.0.1)" } );
   EXPECT_EQ( onRoute.take(), Heard{} );
   EXPECT_EQ( route->rpf(), rpfBy( "eth0" ) );
   EXPECT_EQ( route->routeIntf().size(), 1U );
   EXPECT_EQ( route->pimsmStatus(), vrf.get() );
   EXPECT_NE( vrf->routeIs( route->key() ), route.ptr() );
}

TEST_F( RouteOfVrf, ItsCountersHaveEightBits ) {
   auto route = vrf.wc( "233.252.0.1" );
   route->mfibChangeCountIs( 255 );
   route->routeChangedIs( 254 );
   EXPECT_EQ( route->mfibChangeCountInc( 1 ), 0 );
   EXPECT_EQ( route->routeChangedInc( 3 ), 1 );
   EXPECT_EQ( route->beginIifSwitchInc( 300 ), 300U ) << "not this one";
}

TEST_F( RouteOfVrf, InfinityOverInfinityIsNoChange ) {
   auto route = vrf.wc( "233.252.0.1" );
   RouteRecorder recorder( route.get() );
   route->initFirstInactivityTime();
   EXPECT_EQ( recorder.take(), Heard{} );
   route->firstInactivityTimeIs( 12.5 );
   route->initFirstInactivityTime();
   EXPECT_EQ( route->firstInactivityTime(), kInfinity );
   EXPECT_EQ( recorder.take(),
              ( Heard{ "firstInactivityTime", "firstInactivityTime" } ) );
}

TEST_F( RouteOfVrf, ChangeFlagsChangedInPlaceAreAnnouncedOnRequest ) {
   auto route = vrf.wc( "233.252.0.1" );
   auto intf = route.intf( "eth1" );
   RouteRecorder recorder( route.get() );
   IntfRecorder onIntf( intf.get() );
   route->changeFlagsInPlace().rpChangedIs( true );
   intf->changeFlagsInPlace().addressChangedIs( true );
   EXPECT_EQ( recorder.take(), Heard{} );
   EXPECT_EQ( onIntf.take(), Heard{} );
   route->changeFlagsDoEmbeddedWriteConstraints();
   intf->changeFlagsDoEmbeddedWriteConstraints();
   EXPECT_EQ( recorder.take(), Heard{ "changeFlags" } );
   EXPECT_EQ( onIntf.take(), Heard{ "changeFlags" } );
   route->changeFlagsIs( ChangeFlags( 0x200 ) );  // equal to the present value
   EXPECT_EQ( recorder.take(), Heard{} );
   route->changeFlagsIs( {} );
   EXPECT_EQ( recorder.take(), Heard{ "changeFlags" } );
}

TEST_F( RouteOfVrf, UpstreamRecordsAreMadeOnceAndNotBoundByTheirMaking ) {
   auto route = vrf.sg( "192.0.2.1", "233.252.0.1" );
   RouteRecorder recorder( route.get() );
   Mox::Ptr<UpstreamInfo> backup = route->umhFrrIs();
   EXPECT_EQ( route->umhFrrIs(), backup );
   EXPECT_EQ( backup->route(), nullptr );
   EXPECT_FALSE( backup->frr() );
   Mox::Ptr<UpstreamInfo> main = route->umh();
   EXPECT_EQ( route->umhDel(), main );
   EXPECT_EQ( route->umhDel(), nullptr );
   EXPECT_EQ( route->umhIs()->route(), nullptr );
   EXPECT_EQ( recorder.take(), ( Heard{ "umhFrr", "umh", "umh" } ) );
}

TEST_F( RouteOfVrf, HasStateByAnInterfaceOrPrunedUpstream ) {
   auto route = vrf.sg( "192.0.2.1", "233.252.0.1" );
   EXPECT_FALSE( route->hasSgState() );
   route.upRpt( upRptPruned );
   EXPECT_TRUE( route->hasSgState() );
   route.upRpt( upRptNotPruned );
   EXPECT_FALSE( route->hasSgState() );
   route.intf( "eth1" );
   route->umhDel();
   EXPECT_TRUE( route->hasSgState() );
}

TEST_F( RouteOfVrf, AnInterfaceOfAnotherParentIsRefusedAndKept ) {
   auto route = vrf.sg( "192.0.2.1", "233.252.0.1" );
   auto other = vrf.wc( "233.252.0.1" );
   auto intf = route.intf( "eth1" ).joined();
   RouteRecorder recorder( route.get() );
   EXPECT_EQ( route->routeIntfIs( intfId( "eth1" ), route.get() ), intf.ptr() );
   EXPECT_EQ( Mox::Test::errorText<Mox::NameInUseError>(
                 [&] { route->routeIntfIs( intfId( "eth1" ), other.get() ); } ),
              "Reinstantiating the pointer interface where constructor parameter "
              "attribute _parentRoute has a different value of " +
                 Mox::pointerText( other.get() ) + " than the current value of " +
                 Mox::pointerText( route.get() ) + " not allowed" );
   EXPECT_EQ( route->routeIntf( intfId( "eth1" ) ), intf.get() );
   EXPECT_EQ( intf->parentRoute(), route.get() );
   EXPECT_EQ( intf->joinState(), Intf::joined );
   EXPECT_EQ( recorder.take(), Heard{} );
   EXPECT_TRUE( intf->notificationsEnabled() );
   EXPECT_TRUE( other->routeIntf().empty() );
}

TEST_F( RouteOfVrf, EveryAttributeOfEveryEntityHasAText ) {
   auto route = vrf.sg( "192.0.2.1", "233.252.0.1" );
   auto intf = route.intf( "eth1" );
   Mox::Ptr<Source> source = vrf->sourceIs( addr( "192.0.2.1" ) );
   const Mox::Entity* entities[] = { vrf.get(), route.get(), route->umh(),
                                     intf.get(), source.get() };
   for ( const Mox::Entity* entity : entities ) {
      for ( const Mox::AttributeInfo& row : entity->typeInfo().attributes ) {
         EXPECT_THAT( entity->attributeText( row.name ),
                      testing::Not( testing::IsEmpty() ) )
            << entity->typeInfo().name << ' ' << row.name;
      }
   }
   // Writing back what was read changes nothing.
   RouteRecorder recorder( route.get() );
   UpstreamRecorder upstream( route->umh() );
   for ( const Mox::AttributeInfo& row : route->typeInfo().attributes ) {
      if ( row.set == nullptr ) continue;
      route->attributeTextIs( row.name, route->attributeText( row.name ) );
   }
   EXPECT_EQ( recorder.take(), Heard{} );
   // The upstream record's values are written there.
   route->attributeTextIs( "mbrIif", "'eth3'" );
   EXPECT_EQ( upstream.take(), Heard{ "mbrIif" } );
   EXPECT_THROW( route->attributeTextIs( "iif", "'eth9'" ), Mox::NameError );
   // Attributes that assert on some records are not listed, but can be read by
   // name.
   for ( const char* name : { "couldAssertSg", "assertTrackingDesiredSg" } )
      EXPECT_EQ( intf->attributeText( name ), "false" ) << name;
   EXPECT_EQ( intf->attributeText( "myAssertMetricSg" ),
              valueToStrep( AssertMetric() ) );
}

TEST_F( RouteOfVrf, IsMadeByNameOrFactoryLikeAllEntities ) {
   const std::pair<const char*, const char*> names[] = {
      { "Source", "192.0.2.1" },
      { "UpstreamInfo", "" },
      { "IntfCollection", "" },
      { "Status", "red" },
   };
   for ( const auto& [type, text] : names ) {
      Mox::Ptr<Mox::Entity> made = Mox::newEntityByType(
         Mox::String( "Routing::Pim::SparseMode::" ) + type, text );
      EXPECT_TRUE( made->notificationsEnabled() ) << type;
   }
   // A route that nobody holds yet works, and has its back pointer.
   auto* route =
      new Route( { addr( "192.0.2.1" ), addr( "233.252.0.1" ) }, vrf.get() );
   route->mbrIs( true );
   route->umh()->doUpdateRpf( rpfBy( "eth0" ) );
   Mox::Ptr<Route> held( route );
   Mox::Ptr<Intf> intf = intfFactory( intfId( "eth1" ), route );
   EXPECT_TRUE( held->routeFlags().mbr() );
   EXPECT_EQ( held->pimsmStatus(), vrf.get() );
   vrf.release();
   EXPECT_EQ( held->pimsmStatus(), nullptr );
   EXPECT_EQ( intf->parentRoute(), route );
   held.reset();
   EXPECT_EQ( intf->parentRoute(), nullptr );
}

TEST_F( RouteOfVrf, PrintsItsKeyAndFlags ) {
   std::ostringstream out;
   const Route* none = nullptr;
   out << vrf.sg( "192.0.2.1", "233.252.0.1" ).spTree().get() << "; "
       << vrf.wc( "ff3e::1" ).get() << "; " << none;
   EXPECT_EQ( out.str(),
              "(192.0.2.1, 233.252.0.1), Flags: S; "
              "(*, ff3e::1), Flags: W; null" );
}

}
}
