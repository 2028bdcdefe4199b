#include <gtest/gtest.h>

#include "tests/support/Damage.h"
#include "tests/support/ExportPair.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::Test::assertionText;

TEST( BraneStatus, LivesAtAPathOfItsVrf ) {
   using Vantu::AddressFamily;
   auto path = []( AddressFamily family, Mox::StringView vrf ) {
      return Brane::Status::mountPath( family, L3::VrfName( Mox::String( vrf ) ) );
   };
   EXPECT_EQ( path( AddressFamily::ipv4, "red" ),
              "routing/pim/sparsemode/status/red" );
   EXPECT_EQ( path( AddressFamily::ipv6, "default" ),
              "routing6/pim/sparsemode/status/default" );
   for ( Mox::StringView vrf : { "", ".", "..", "a/b", "../x" } ) {
      EXPECT_THROW( path( AddressFamily::ipv4, vrf ), Mox::RangeError ) << vrf;
   }
   EXPECT_THROW( path( AddressFamily::ipv4, Mox::StringView( "a\0b", 3 ) ),
                 Mox::RangeError );
   EXPECT_EQ(
      assertionText( [&] { path( static_cast<AddressFamily>( 7 ), "red" ); } ),
      "Unsupported address family" );
}

// Notes the order in which the tables are mounted.
class ControlWatch : public ::MoxBrane::CollectionControl::NotifieeConst {
 public:
   ControlWatch( ::MoxBrane::CollectionControl* control, Mox::String& order )
      : order_( order ) {
      notifierIs( control );
   }
   void onMountStatus() override {
      order_ +=
         notifier()->name() + ' ' + std::to_string( notifier()->capacity() ) + ' ';
   }

 private:
   Mox::String& order_;
};

class BraneStatusMount : public testing::Test {
 protected:
   static constexpr const char* kType = "Routing::Pim::SparseMode::Brane::Status";

   // The order in which mounting in the role takes the tables.
   Mox::String mountOrder( ExportSide& side ) {
      Mox::Ptr<Mox::Entity> made = side.manager.createEntity( side.path, kType );
      auto* tables = dynamic_cast<Brane::Status*>( made.get() );
      Mox::String order;
      ControlWatch watches[] = { { tables->routeControl(), order },
                                 { tables->routeIntfControl(), order },
                                 { tables->routeCounterControl(), order } };
      side.mount();
      EXPECT_EQ( side.tables, made );
      return order;
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
};

TEST_F( BraneStatusMount, FollowsTheDependencies ) {
   ReaderSide reader( clock, root.path() );
   EXPECT_EQ( mountOrder( reader ), "routeCounter 0 routeIntf 0 route 0 " );
   AgentSide agent( clock, root.path() );
   agent.model->maxRoutesIs( 5 );
   agent.model->maxRouteIntfsIs( 50 );
   EXPECT_EQ( mountOrder( agent ), "route 5 routeIntf 50 routeCounter 3 " );
   EXPECT_EQ( agent.tables->route().capacity(), 5U );
   // A reader takes the writer's capacity.
   ReaderSide late( clock, root.path() );
   late.mount();
   EXPECT_EQ( late.tables->routeIntf().capacity(), 50U );
   // A second call returns the same entity, mounted as before.
   Mox::Ptr<Brane::Status> former = agent.tables;
   agent.mount();
   EXPECT_EQ( agent.tables, former );
   agent.role = ::Brane::tableReader;
   EXPECT_THROW( agent.mount(), ::Brane::TableError );
}

// An unreadable record is not absent.
TEST_F( BraneStatusMount, GivesItsRecordsByKeyAndOneAfterAnother ) {
   AgentSide agent( clock, root.path() );
   agent.mount();
   std::set<RouteKey> keys;
   for ( const char* group : { "233.252.0.1", "233.252.0.2", "233.252.0.3" } ) {
      Brane::Route record;
      record.key = SparseMode::Test::sgKey( "192.0.2.1", group );
      record.creationTime = 7;
      agent.tables->routeIs( record );
      keys.insert( record.key );
   }
   const RouteKey first = *keys.begin();
   EXPECT_EQ( agent.tables->route( first )->creationTime, 7 );
   EXPECT_EQ( agent.tables->route( RouteKey() ), std::nullopt );
   EXPECT_EQ( agent.tables->routeCounter( { Brane::unresolved, 0 } ),
              std::nullopt );
   std::set<RouteKey> met;
   for ( const Brane::Route& record : agent.tables->route() ) {
      if ( met.empty() ) agent.tables->routeDel( *keys.rbegin() );
      met.insert( record.key );
   }
   // The record removed meanwhile may have been the first.
   EXPECT_TRUE( met == keys || met.size() == keys.size() - 1 );
   for ( const char* name : { "routeControl", "unresolvedRoutes" } )
      EXPECT_NE( agent.tables->attributeText( name ), "" );
   ReaderSide reader( clock, root.path() );
   reader.mount();
   reader.manager.dispatch();
   Mox::Test::breakStamp( root.path() + '/' + agent.path + "/route", first );
   EXPECT_THROW( reader.tables->route( first ), ::Brane::UnreadableError );
}

TEST_F( BraneStatusMount, AttachesNoReaderWhileSuspended ) {
   ReaderSide reader( clock, root.path() );
   reader.manager.attachSuspendedIs( true );
   EXPECT_EQ( mountOrder( reader ), "" );
   EXPECT_FALSE( reader.tables->route().mounted() );
   reader.manager.attachSuspendedIs( false );
   reader.mount();
   EXPECT_TRUE( reader.tables->route().mounted() );
   AgentSide agent( clock, root.path() );
   agent.manager.attachSuspendedIs( true );
   agent.mount();
   EXPECT_NE( agent.tables->route().writer(), nullptr );
}

TEST_F( BraneStatusMount, DemandsAModelAsWriter ) {
   AgentSide agent( clock, root.path() );
   EXPECT_EQ( assertionText( [&] {
                 Brane::Status::mountInDependencyOrder(
                    agent.manager, agent.path, ::Brane::tableWriter, nullptr );
              } ),
              "status" );
   EXPECT_EQ( assertionText( [&] {
                 Brane::Status::mountInDependencyOrder(
                    agent.manager, agent.path, ::Brane::tableReader, nullptr );
              } ),
              "" );
}

TEST_F( BraneStatusMount, CountsWhatAnotherProcessCounted ) {
   AgentSide agent( clock, root.path() );
   agent.mount();
   agent.tables->routeCounterIs( { { Brane::unresolved, 0 }, 3 } );
   agent.tables->routeCounterIs( { { Brane::toBeDeleted, 0 }, 4 } );
   agent.tables->routeCounterIs( { { Brane::switching, 0 }, 5 } );
   agent.manager.dispatch();
   ReaderSide reader( clock, root.path() );
   reader.mount();
   for ( ExportSide* side : { static_cast<ExportSide*>( &agent ),
                              static_cast<ExportSide*>( &reader ) } ) {
      EXPECT_EQ( side->tables->unresolvedRoutes(), 3U );
      EXPECT_EQ( side->tables->toBeDeletedRoutes(), 4U );
      EXPECT_EQ( side->tables->switchingRoutes(), 5U );
   }
   agent.tables->routeCounterDel( { Brane::unresolved, 0 } );
   EXPECT_EQ( reader.tables->unresolvedRoutes(), 0U );
}

}
}
