#include <gtest/gtest.h>

#include "platform/entity/Factory.h"
#include "tests/support/ModelRecorders.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

TEST( StatusTree, KeepsOneStatusAVrf ) {
   Mox::Ptr<StatusColl> coll = statusCollFactory();
   StatusCollRecorder recorder( coll.get() );
   Mox::Ptr<Status> red = coll->vrfStatusIs( L3::VrfName( "red" ) );
   EXPECT_EQ( coll->vrfStatusIs( L3::VrfName( "red" ) ), red );
   EXPECT_TRUE( red->notificationsEnabled() );
   coll->vrfStatusDelAll();
   EXPECT_EQ( coll->vrfStatusDel( L3::VrfName( "red" ) ), nullptr );
   EXPECT_EQ( recorder.take(), ( Heard{ "vrfStatus red", "vrfStatus red" } ) );
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

TEST( SourceOfVrf, GroupsAreOrderedAndHeardOnChangeAlone ) {
   Vrf vrf;
   for ( const char* address : { "192.0.2.9", "2001:db8::1", "192.0.2.1" } ) {
      vrf->sourceIs( addr( address ) );
   }
   EXPECT_EQ( Mox::keysOf( vrf->source() ),
              ( std::vector{ addr( "192.0.2.1" ), addr( "192.0.2.9" ),
                             addr( "2001:db8::1" ) } ) );
   Mox::Ptr<Source> source = vrf->source( addr( "192.0.2.1" ) );
   SourceRecorder recorder( source.get() );
   source->sourceGroupIs( addr( "233.252.0.2" ), true );
   source->sourceGroupIs( addr( "233.252.0.1" ), true );
   source->sourceGroupDelAll();
   source->sourceInjectGroupIs( addr( "233.252.0.3" ) );
   source->sourceInjectGroupDelAll();
   source->monitoredSourceIs( { intfId( "eth0" ), true } );
   source->monitoredSourceIs( { intfId( "eth0" ), true } );
   EXPECT_EQ( recorder.take(),
              ( Heard{ "sourceGroup 233.252.0.2", "sourceGroup 233.252.0.1",
                       "sourceGroup 233.252.0.1", "sourceGroup 233.252.0.2",
                       "sourceInjectGroup 233.252.0.3",
                       "sourceInjectGroup 233.252.0.3", "monitoredSource" } ) );
}

// The key given may be the collection's own; an observer that removes it must not
// leave the next one with a dead key.
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

TEST( Interfaces, AreASet ) {
   Mox::Ptr<IntfCollection> intfs = intfCollectionFactory();
   IntfCollectionRecorder recorder( intfs.get() );
   intfs->intfIs( intfId( "eth1" ) );
   intfs->intfIs( intfId( "eth1" ) );
   intfs->intfDelAll();
   EXPECT_EQ( recorder.take(), ( Heard{ "intf 'eth1'", "intf 'eth1'" } ) );
}

TEST( ModelFactory, MakesByTypeName ) {
   Mox::Ptr<Mox::Entity> made =
      Mox::newEntityByType( "Routing::Pim::SparseMode::Status", "red" );
   auto* status = dynamic_cast<Status*>( made.get() );
   ASSERT_NE( status, nullptr );
   EXPECT_EQ( status->vrfName(), L3::VrfName( "red" ) );
   EXPECT_TRUE( status->notificationsEnabled() );
   for ( const char* type : { "StatusColl", "IntfCollection" } ) {
      Mox::String name = Mox::String( "Routing::Pim::SparseMode::" ) + type;
      EXPECT_EQ( Mox::newEntityByType( name, "" )->typeInfo().name, name );
   }
}

}
}
