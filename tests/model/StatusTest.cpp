#include <gtest/gtest.h>

#include "model/IntfCollection.h"
#include "platform/entity/Factory.h"
#include "tests/support/ModelRecorders.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

TEST( StatusTree, KeepsOneStatusAVrf ) {
   Mox::Ptr<StatusColl> coll = statusCollFactory();
   Mox::Ptr<Status> red = coll->vrfStatusIs( L3::VrfName( "red" ) );
   EXPECT_EQ( coll->vrfStatusIs( L3::VrfName( "red" ) ), red );
   EXPECT_TRUE( red->notificationsEnabled() );
}

TEST( StatusTree, EnforcesNoLimitAndCountsNothing ) {
   Vrf vrf;
   vrf->maxRoutesIs( 1 );
   vrf->maxRouteIntfsIs( 1 );
   vrf.wc( "233.252.0.1" ).intf( "eth1" );
   vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" );
   EXPECT_EQ( vrf->route().size(), 2U );
   EXPECT_EQ( vrf->sgRoutes(), 0U );
   EXPECT_EQ( vrf->wcRoutes(), 0U );
   EXPECT_EQ( vrf->wcRoutesDec( 1 ), 0xffffffffU );
}

// The given key may be the collection's own. An observer that removes it must not
// leave the next one with a dangling key.
TEST( SourceOfVrf, NotifiesAKeyThatAnObserverRemovesMeanwhile ) {
   Vrf vrf;
   Mox::Ptr<Source> source = vrf->sourceIs( addr( "192.0.2.1" ) );
   source->sourceGroupIs( addr( "233.252.0.1" ), true );
   SourceRecorder first( source.get() ), second( source.get() );
   first.inside = [&]( const Mox::String& ) {
      first.inside = nullptr;
      source->sourceGroupDelAll();
   };
   source->sourceGroupIs( source->sourceGroup().begin()->first, false );
   EXPECT_EQ( second.take(),
              ( Heard{ "sourceGroup 233.252.0.1", "sourceGroup 233.252.0.1" } ) );
}

TEST( ModelFactory, MakesByTypeName ) {
   Mox::Ptr<Mox::Entity> made =
      Mox::newEntityByType( "Routing::Pim::SparseMode::Status", "red" );
   auto* status = dynamic_cast<Status*>( made.get() );
   ASSERT_NE( status, nullptr );
   EXPECT_EQ( status->vrfName(), L3::VrfName( "red" ) );
   EXPECT_TRUE( status->notificationsEnabled() );
   const Mox::Ptr<Mox::Entity> others[] = { statusCollFactory(),
                                            intfCollectionFactory() };
   for ( const auto& other : others ) {
      Mox::StringView name = other->typeInfo().name;
      EXPECT_EQ( Mox::newEntityByType( name, "" )->typeInfo().name, name );
   }
}

}
}
