// The agent is killed at each of its stores while it takes over its predecessor's
// tables and continues from there.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/export/Content.h"
#include "tests/platform/shm/kill/KillPoints.h"
#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using ::Brane::Test::KillPoints;

// Interfaces without a route.
size_t orphansIn( const Content& content ) {
   return static_cast<size_t>( std::count_if(
      content.intfs.begin(), content.intfs.end(), [&]( const auto& entry ) {
         return !content.routes.contains( entry.first.routeKey );
      } ) );
}

struct SmallAgent : AgentSide {
   SmallAgent( Mox::TestClock& sideClock, const std::string& root )
      : AgentSide( sideClock, root ) {
      model->maxRoutesIs( 8 );
      model->maxRouteIntfsIs( 24 );
      mount();
   }
   // One entry a slice, with the writer beside it as in the agent.
   void takeUp() {
      restart = Brane::routeBraneRestartSmFactory( model, tables, role, &clock );
      restart->reviewQuantumIs( 0 );
      writer = Brane::routeBraneWriterSmFactory( model, tables, &clock );
      while ( !model->initialized() ) ASSERT_TRUE( clock.runPass() );
   }
};

class ExportKill : public testing::Test {
 protected:
   static constexpr const char* kGroup = "233.252.0.1";
   static std::string source( unsigned i ) {
      return "192.0.2." + std::to_string( i );
   }
   static RouteKey keyOf( unsigned i ) { return sgKey( source( i ), kGroup ); }

   std::vector<std::string> files( const std::string& where ) const {
      std::string path = where + '/' +
                         Brane::Status::mountPath( Vantu::AddressFamily::ipv4,
                                                   L3::VrfName( "default" ) );
      return { path + "/route", path + "/routeIntf" };
   }

   // A (*,G), three (S,G), three interfaces each, and six interfaces whose routes
   // have gone: the tables of an agent killed while it removes two routes.
   void leave() {
      SmallAgent former( clock, root.path() );
      former.start();
      Vrf vrf{ former.model };
      vrf.wc( kGroup ).rpf( "eth0" );
      for ( unsigned i = 1; i <= 5; ++i )
         vrf.sg( source( i ), kGroup ).rpf( "eth0" );
      for ( Route& route : former.model->route() ) {
         for ( const char* intf : { "eth1", "eth2", "eth3" } )
            route.routeIntfIs( intfId( intf ) )->joinStateIs( Intf::joined );
      }
      former.publish();
      former.tables->routeDel( keyOf( 4 ) );
      former.tables->routeDel( keyOf( 5 ) );
   }

   // A route changes, one goes, one comes; an interface goes, one comes.
   static void work( SmallAgent& agent ) {
      Vrf vrf{ agent.model };
      vrf.sg( source( 1 ), kGroup ).rpf( "eth9" ).spTree().intf( "eth4" ).joined();
      agent.model->route( keyOf( 1 ) )->routeIntfDel( intfId( "eth2" ) );
      agent.model->routeDel( keyOf( 2 ) );
      vrf.sg( source( 6 ), kGroup ).rpf( "eth0" ).intf( "eth1" ).joined();
      agent.publish();
   }

   // Writes the tables as the kill left them.
   void lay( const KillPoints::Image& image ) {
      for ( size_t i = 0; i < image.size(); ++i ) {
         std::filesystem::path file = files( dead.path() )[i];
         std::filesystem::create_directories( file.parent_path() );
         std::filesystem::remove( file );
         ::Brane::Test::bytesAre( file, image[i] );
      }
   }

   // Checks that every record that stood throughout is there, old or new.
   void check( const Content& seen ) const {
      check( seen.routes, before.routes, after.routes );
      check( seen.intfs, before.intfs, after.intfs );
   }
   template <class Map>
   static void check( const Map& seen, const Map& before, const Map& after ) {
      for ( const auto& [key, record] : before ) {
         auto later = after.find( key );
         if ( later == after.end() ) continue;
         auto found = seen.find( key );
         ASSERT_NE( found, seen.end() ) << key;
         EXPECT_TRUE( found->second == record || found->second == later->second );
      }
   }
   // Checks that the model has every route of the tables with all its interfaces,
   // and no others.
   static void checkLoaded( const SmallAgent& agent, Content held ) {
      std::erase_if( held.intfs, [&]( const auto& entry ) {
         return !held.routes.contains( entry.first.routeKey );
      } );
      EXPECT_EQ( Content::of( *agent.model ), held );
      for ( const Route& route : agent.model->route() )
         EXPECT_TRUE( route.initialized() );
   }

   // Runs the next agent, killed itself at each store of its reload if `deep`.
   void goOn( const KillPoints::Image& image, bool deep ) {
      ++points;
      lay( image );
      ReaderSide reader( clock, dead.path() );
      reader.start();
      const Content seen = Content::of( *reader.tables );
      check( seen );
      Content taken;
      std::vector<KillPoints::Image> again;
      {
         std::unique_ptr<SmallAgent> agent;
         again = KillPoints::of( files( dead.path() ), [&] {
            agent = std::make_unique<SmallAgent>( clock, dead.path() );
            taken = Content::of( *agent->tables );
            agent->takeUp();
         } );
         check( taken );
         // The next writer finishes half-done changes, and loses nothing.
         for ( const auto& [key, record] : seen.routes ) {
            EXPECT_TRUE( taken.routes.contains( key ) ) << key;
         }
         checkLoaded( *agent, taken );
         EXPECT_EQ( orphansIn( Content::of( *agent->tables ) ), 0U );
         work( *agent );
         const Content now = Content::of( *agent->tables );
         EXPECT_EQ( orphansIn( now ), 0U );
         EXPECT_EQ( now, after );
         EXPECT_EQ( agent->tables->route().writer()->verify().damaged, 0U );
         EXPECT_EQ( agent->tables->routeIntf().writer()->verify().damaged, 0U );
      }
      reader.follow();
      EXPECT_EQ( reader.model->route().size(), after.routes.size() );
      if ( !deep ) return;
      for ( size_t i = 0; i < again.size() && !HasFailure(); ++i ) {
         SCOPED_TRACE( "and killed again at " + std::to_string( i ) );
         goOn( again[i], false );
      }
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root, dead;
   Content before, after;
   size_t points = 0;
};

TEST_F( ExportKill, AnywhereInReconciliationOrAfterItLosesNoRoute ) {
   leave();
   std::unique_ptr<SmallAgent> agent;
   std::vector<KillPoints::Image> reload =
      KillPoints::of( files( root.path() ), [&] {
         agent = std::make_unique<SmallAgent>( clock, root.path() );
         before = Content::of( *agent->tables );
         agent->takeUp();
      } );
   EXPECT_EQ( orphansIn( before ), 6U );
   EXPECT_GE( reload.size(), 6U * 4 );
   std::vector<KillPoints::Image> later =
      KillPoints::of( files( root.path() ), [&] { work( *agent ); } );
   EXPECT_GT( later.size(), 50U );
   after = Content::of( *agent->tables );
   ASSERT_EQ( after.routes.size(), 4U );
   for ( size_t i = 0; i < reload.size() && !HasFailure(); ++i ) {
      SCOPED_TRACE( "reload, kill point " + std::to_string( i ) );
      goOn( reload[i], true );
   }
   for ( size_t i = 0; i < later.size() && !HasFailure(); ++i ) {
      SCOPED_TRACE( "review, kill point " + std::to_string( i ) );
      goOn( later[i], true );
   }
   RecordProperty( "points", std::to_string( points ) );
   EXPECT_GT( points, 500U );  // some 1,000, by where the records fall
}

}
}
