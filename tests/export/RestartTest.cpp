#include <gtest/gtest.h>

#include "tests/export/Content.h"
#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

class Restart : public testing::Test {
 protected:
   // A former agent's tables.
   void leave( unsigned routes, unsigned intfsEach ) {
      AgentSide former( clock, root.path() );
      former.mount();
      for ( unsigned i = 0; i < routes; ++i ) {
         Brane::Route record( keyOf( i ) );
         record.creationTime = i;
         record.rpf = rpfBy( "eth0" );
         former.tables->routeIs( record );
         for ( unsigned j = 0; j < intfsEach; ++j ) {
            Brane::Intf intf(
               { keyOf( i ), intfId( "eth" + std::to_string( j ) ) } );
            intf.joinState = Intf::joined;
            former.tables->routeIntfIs( intf );
         }
      }
      former.manager.dispatch();
   }
   void begin( ExportSide& side ) {
      side.mount();
      side.restart = Brane::routeBraneRestartSmFactory( side.model, side.tables,
                                                        side.role, &clock );
   }
   std::vector<RouteKey> routesInOrder( const ExportSide& side ) {
      std::vector<RouteKey> keys;
      side.tables->route().visit( [&]( const Brane::Route& record ) {
         keys.push_back( record.key );
         return true;
      } );
      return keys;
   }
   // Expects every record in the model, and no others; strays only in the table.
   void expectLoaded( const ExportSide& side, size_t routes, size_t intfs ) {
      Content held = Content::of( *side.tables );
      std::erase_if( held.intfs, [&]( const auto& entry ) {
         return !held.routes.contains( entry.first.routeKey );
      } );
      EXPECT_EQ( Content::of( *side.model ), held );
      EXPECT_EQ( held.routes.size(), routes );
      EXPECT_EQ( held.intfs.size(), intfs );
      for ( const Route& route : side.model->route() )
         EXPECT_TRUE( route.initialized() );
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
};

// Eight entries, three a slice: four routes loaded, then initialised.
TEST_F( Restart, SuspendsWithTheKeyAtWhichItResumes ) {
   leave( 4, 0 );
   AgentSide agent( clock, root.path() );
   begin( agent );
   clock.stepIs( 1.0 / 16 );
   agent.restart->reviewQuantumIs( 3.0 / 16 );
   std::vector<RouteKey> keys = routesInOrder( agent );
   clock.runPass();
   EXPECT_EQ( agent.model->route().size(), 3U );
   EXPECT_EQ( agent.restart->reviewBookmark(), ( RouteIntfKey{ keys[3], {} } ) );
   clock.runPass();
   EXPECT_EQ( agent.model->route().size(), 4U );
   EXPECT_FALSE( agent.model->initialized() );
   EXPECT_FALSE( agent.model->route( keys[2] )->initialized() );
   clock.runPass();
   EXPECT_TRUE( agent.model->initialized() );
   EXPECT_EQ( agent.restart->reviewBookmark(), RouteIntfKey() );
   expectLoaded( agent, 4, 0 );
}

TEST_F( Restart, ResumesInEveryPhaseWithOneEntryASlice ) {
   leave( 5, 3 );
   for ( auto role : { ::Brane::tableWriter, ::Brane::tableReader } ) {
      ExportSide side( clock, root.path(), role );
      begin( side );
      side.restart->reviewQuantumIs( 0 );
      int slices = 0;
      while ( !side.model->initialized() ) {
         ASSERT_TRUE( clock.runPass() );
         ++slices;
      }
      // A phase's end begins the next phase in the same slice.
      EXPECT_EQ( slices, 5 + 15 + 5 - 2 );
      expectLoaded( side, 5, 15 );
   }
}

// The bookmark's record is removed between two slices.
TEST_F( Restart, ResumesAfterABookmarkThatHasGone ) {
   leave( 6, 2 );
   AgentSide agent( clock, root.path() );
   begin( agent );
   agent.restart->reviewQuantumIs( 0 );
   clock.runPass();
   RouteKey gone = agent.restart->reviewBookmark().routeKey;
   agent.tables->routeDel( gone );
   while ( !agent.restart->reviewedRoutes() ) ASSERT_TRUE( clock.runPass() );
   RouteIntfKey goneIntf = agent.restart->reviewBookmark();
   agent.tables->routeIntfDel( goneIntf );
   while ( !agent.model->initialized() ) ASSERT_TRUE( clock.runPass() );
   unsigned intfsGone = goneIntf.routeKey == gone ? 2 : 3;
   expectLoaded( agent, 5, 12 - intfsGone );
   EXPECT_EQ( agent.tables->routeIntf().size(), 12 - intfsGone );
}

// A bookmark set by others is where the phase goes on; one of no record begins it anew. A
// phase that others end leaves nothing to the next.
TEST_F( Restart, GoesOnWhereOthersSay ) {
   leave( 6, 0 );
   AgentSide agent( clock, root.path() );
   begin( agent );
   agent.restart->reviewQuantumIs( 0 );
   const std::vector<RouteKey> keys = routesInOrder( agent );
   for ( int i = 0; i < 2; ++i ) ASSERT_TRUE( clock.runPass() );
   agent.restart->reviewBookmarkIs( RouteIntfKey{ keys[4], {} } );
   ASSERT_TRUE( clock.runPass() );
   EXPECT_NE( agent.model->route( keys[4] ), nullptr );
   EXPECT_EQ( agent.model->route( keys[2] ), nullptr );
   agent.restart->reviewBookmarkIs( RouteIntfKey{ keyOf( 99 ), {} } );
   for ( int i = 0; i < 3; ++i ) ASSERT_TRUE( clock.runPass() );
   EXPECT_NE( agent.model->route( keys[2] ), nullptr );
   agent.restart->reviewedRoutesIs( true );
   while ( !agent.model->initialized() ) ASSERT_TRUE( clock.runPass() );
   for ( const Route& route : agent.model->route() )
      EXPECT_TRUE( route.initialized() ) << route.key();
}

// What a reader has yet to load changes, goes and comes, and its table has become another
// one before its next slice.
TEST_F( Restart, GoesOnBesideATableThatGrows ) {
   leave( 4, 3 );
   AgentSide agent( clock, root.path() );
   agent.mount();
   ReaderSide side( clock, root.path() );
   side.mount();
   side.reader = Brane::routeBraneReaderSmFactory( side.model, side.tables );
   side.restart = Brane::routeBraneRestartSmFactory( side.model, side.tables,
                                                     side.role, &clock );
   side.restart->reviewQuantumIs( 0 );
   while ( side.restart->reviewBookmark().intfId == Vantu::IntfId() )
      ASSERT_TRUE( clock.runPass() );
   for ( unsigned i = 0; i < 4; ++i ) {
      agent.tables->routeIntfDel( { keyOf( i ), intfId( "eth1" ) } );
      for ( unsigned j = 2; j < 300; ++j ) {
         Brane::Intf intf( { keyOf( i ), intfId( "eth" + std::to_string( j ) ) } );
         intf.joinState = Intf::prunePending;
         agent.tables->routeIntfIs( intf );
      }
   }
   agent.manager.dispatch();
   side.follow();
   while ( !side.model->initialized() ) ASSERT_TRUE( clock.runPass() );
   side.follow();
   expectLoaded( side, 4, 4 * 299 );
}

// Fields missing in an older agent's records get their defaults, not zeros: a zero
// metric would beat every other.
TEST_F( Restart, GivesFieldsOfNoFormerLayoutTheirDefaults ) {
   leave( 1, 0 );
   AgentSide agent( clock, root.path() );
   const RouteIntfKey key{ keyOf( 0 ), intfId( "eth1" ) };
   {
      using Table = Brane::RouteIntfTable;
      ::Brane::Layout older = Table::makeLayout();
      for ( auto& field : older.fields ) {
         if ( field.name == "assertInfo" ) field.type += "Once";
      }
      ::Brane::TableWriter former( root.path() + '/' + agent.path + "/routeIntf",
                                   older, 100 );
      Brane::Intf record( key );
      record.joinState = Intf::joined;
      record.assertInfo = { iAmAssertLoser,
                            assertMetric( "[S] 192.0.2.9 [110/20]" ) };
      alignas( 16 )::Brane::FlatForm<Brane::Intf>::Bytes bytes{};
      ::Brane::FlatForm<Brane::Intf>::write( record, bytes );
      former.put( &bytes );
   }
   agent.start();
   const Intf* taken = agent.model->route( keyOf( 0 ) )->routeIntf( key.intfId );
   ASSERT_NE( taken, nullptr );
   EXPECT_EQ( taken->joinState(), Intf::joined );
   EXPECT_EQ( taken->assertInfo(), AssertInfo() );
}

}
}
