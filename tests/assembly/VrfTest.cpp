// An agent's VRF and its mirror, each as one object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "assembly/VrfMirror.h"
#include "assembly/VrfWriter.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Heard = std::vector<std::string>;
using testing::ElementsAre;
using testing::IsEmpty;

class AssembledVrf : public testing::Test {
 protected:
   struct Agent {
      Agent( Mox::TestClock& clock, const std::string& root )
         : manager( clock, nullptr, root ),
           vrf( manager, clock, Vantu::AddressFamily::ipv4, L3::VrfName( "red" ),
                { 10, 100 } ) {}
      Corvex::EntityManager manager;
      VrfWriter vrf;
   };

   void turns() {
      for ( int i = 0; i < 10; ++i ) {
         clock.advance( 0.02 );
         clock.runPass();
         if ( agent ) {
            agent->vrf.handleTurnEnd();
            agent->manager.dispatch();
         }
         readers.dispatch();
         mirror.handleTurnEnd();
      }
   }
   Heard heard() {
      turns();
      return std::exchange( heard_, {} );
   }

   VrfMirror::Observer observer() {
      VrfMirror::Observer observer;
      observer.route = [this]( const RouteKey&, const Brane::Route* before,
                               const Brane::Route* now ) {
         auto state = []( const Brane::Route* record ) {
            return record == nullptr                 ? "-"
                   : record->upJoinState == upJoined ? "joined"
                                                     : "not joined";
         };
         heard_.push_back( std::string( state( before ) ) + " > " + state( now ) );
      };
      observer.routeIntf = [this]( const RouteIntfKey& key, const Brane::Intf*,
                                   const Brane::Intf* now ) {
         heard_.push_back( std::string( key.intfId.name() ) +
                           ( now != nullptr && now->forward ? " forwards" : "" ) );
      };
      observer.writer = [this]( bool alive ) {
         heard_.push_back( alive ? "agent" : "no agent" );
      };
      return observer;
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager readers{ clock, nullptr, root.path() };
   Heard heard_;
   VrfMirror mirror{ readers, clock, Vantu::AddressFamily::ipv4,
                     L3::VrfName( "red" ), observer() };
   std::optional<Agent> agent;
};

TEST_F( AssembledVrf, TellsItsMirrorWhatDiffersAcrossRestarts ) {
   EXPECT_THAT( heard(), IsEmpty() );
   EXPECT_TRUE( mirror.initialized() );
   EXPECT_FALSE( mirror.loaded() );
   agent.emplace( clock, root.path() );
   EXPECT_THAT( heard(), ElementsAre( "agent" ) );
   ASSERT_TRUE( agent->vrf.ready() && mirror.loaded() );
   EXPECT_THROW( VrfWriter( agent->manager, clock, Vantu::AddressFamily::ipv4,
                            L3::VrfName( "red" ) ),
                 ::Brane::SecondWriterError );
   Mox::Ptr<Route> route = agent->vrf.model()->routeIs( wcKey( "233.252.0.1" ) );
   route->wildCardIs( true );
   EXPECT_THAT( heard(), ElementsAre( "- > not joined" ) );
   // A change of an interface alone is published, too.
   route->routeIntfIs( intfId( "eth1" ) )->forwardIs( true );
   EXPECT_THAT( heard(), ElementsAre( "eth1 forwards" ) );
   route->upJoinStateIs( upJoined );
   agent->vrf.writer().changeSet()->routeIs( route->key(), true );
   EXPECT_THAT( heard(), ElementsAre( "not joined > joined" ) );
   // An equal record is written once more.
   agent->vrf.writer().changeSet()->routeIs( route->key(), true );
   EXPECT_THAT( heard(), IsEmpty() );
   EXPECT_TRUE( agent->vrf.idle() );

   route.reset();
   agent.reset();
   EXPECT_THAT( heard(), ElementsAre( "no agent" ) );
   EXPECT_EQ( mirror.model()->route().size(), 1U );
   for ( const char* table : { "/route", "/routeIntf" } ) {
      const Mox::String file = root.path() + '/' +
                               Brane::Status::mountPath( Vantu::AddressFamily::ipv4,
                                                         L3::VrfName( "red" ) ) +
                               table;
      std::filesystem::rename( file, file + "-" );
      std::filesystem::create_directory( file );
      EXPECT_THAT( heard(), IsEmpty() );
      EXPECT_FALSE( mirror.loaded() ) << table << " alone cannot be read";
      std::filesystem::remove( file );
      std::filesystem::rename( file + "-", file );
      EXPECT_THAT( heard(), IsEmpty() );
      EXPECT_TRUE( mirror.loaded() );
   }
   agent.emplace( clock, root.path() );
   EXPECT_THAT( heard(), ElementsAre( "agent" ) );
   EXPECT_NE( agent->vrf.model()->route( wcKey( "233.252.0.1" ) ), nullptr );

   agent->vrf.retire();
   EXPECT_THAT( heard(),
                testing::UnorderedElementsAre( "joined > -", "eth1", "no agent" ) );
}

}
}
