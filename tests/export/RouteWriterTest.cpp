#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "export/Conversion.h"
#include "tests/export/Content.h"
#include "tests/support/ExportPair.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

class RouteWriter : public testing::Test {
 protected:
   bool hasIntf( const RouteKey& key, Mox::StringView intf ) const {
      return agent.tables->routeIntf().has( { key, intfId( intf ) } );
   }
   // The marks of the route and its eth1: "route", "intf", both or neither.
   Mox::String marked() const {
      auto& set = *agent.writer->changeSet();
      Mox::String text;
      if ( set.route( kKey ) != nullptr ) text += "route ";
      if ( set.routeIntf( { kKey, intfId( "eth1" ) } ) != nullptr ) text += "intf ";
      return text;
   }
   // The route and its interface, published.
   RouteBuilder publishedRoute() {
      RouteBuilder route = vrf.sg( "192.0.2.1", "233.252.0.1" );
      route.rpf( "eth0" ).rpfFrr( "eth5" ).intf( "eth1" );
      agent.publish();
      return route;
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   AgentSide agent{ clock, root.path() };
   Vrf vrf{ agent.model };
};

// The random walk tests marking and writing in general.

// Routes first; 82 records are 10 ms of this clock.
TEST_F( RouteWriter, KeepsToItsQuantumAndResumesAtOnce ) {
   constexpr size_t kRoutes = 1000, kASlice = 82;
   agent.start();
   for ( unsigned i = 0; i < kRoutes; ++i ) {
      agent.model->routeIs( keyOf( i ) )->routeIntfIs( intfId( "eth1" ) );
   }
   Mox::Test::TraceCapture traces( "Pimsm::RouteBraneWriter/3" );
   clock.advance( agent.writer->maxDelay() );
   clock.stepIs( 1.0 / 8192 );
   size_t left = kRoutes, intfs = kRoutes;
   for ( bool first = true; first || left != 0 || intfs != 0; first = false ) {
      double began = clock.now();
      ASSERT_TRUE( clock.runPass() );
      EXPECT_LT( clock.now() - began, 1.1 * agent.writer->reviewQuantum() );
      const auto& pending = *agent.writer->reviewChangeSet();
      left -= std::min( left, kASlice );
      intfs = pending.routeIntf().size();
      EXPECT_EQ( pending.route().size(), left );
      Mox::String end = "Finished review";
      if ( left != 0 || intfs != 0 )
         end = "Suspending review, pending routes:" + std::to_string( left ) +
               ", pending intfs:" + std::to_string( intfs );
      EXPECT_THAT( traces.take(),
                   ElementsAre( HasSubstr( first ? "Starting" : "Resuming" ),
                                EndsWith( end ) ) );
   }
   EXPECT_EQ( agent.tables->route().size(), kRoutes );
   EXPECT_EQ( agent.tables->routeIntf().size(), kRoutes );
   EXPECT_GE( agent.writer->slices(), 2 * kRoutes / kASlice );
}

TEST_F( RouteWriter, LeavesAnInterfaceAloneUntilTheNextReview ) {
   agent.start();
   RouteBuilder route = publishedRoute();
   uint64_t reviews = agent.writer->reviews();
   route.intf( "eth1" )->forwardIs( true );
   route.intf( "eth2" );
   clock.runUntil( clock.now() + 10 );
   EXPECT_EQ( agent.writer->reviews(), reviews );
   EXPECT_FALSE( hasIntf( kKey, "eth2" ) );
   agent.writer->doMaybeUpdateReviewTimer();
   clock.runUntil( clock.now() + 0.05 );
   EXPECT_EQ( agent.writer->reviews(), reviews + 1 );
   EXPECT_TRUE( hasIntf( kKey, "eth2" ) );
}

TEST_F( RouteWriter, WaitsForTheModelToBeInitialized ) {
   agent.mount();
   vrf.sg( "192.0.2.1", "233.252.0.1" ).intf( "eth1" );
   agent.writer =
      Brane::routeBraneWriterSmFactory( agent.model, agent.tables, &clock );
   vrf.sg( "192.0.2.2", "233.252.0.1" );
   clock.runUntil( clock.now() + 10 );
   agent.writer->doReview();
   EXPECT_EQ( agent.tables->route().size(), 0U );
   EXPECT_EQ( agent.writer->changeSet()->route().size(), 2U );
   agent.model->initializedIs( true );
   clock.runUntil( clock.now() + 0.05 );
   EXPECT_EQ( agent.tables->route().size(), 2U );
   EXPECT_TRUE( hasIntf( kKey, "eth1" ) );
}

// Replaces a route as soon as it is notified of its removal.
class Replacer : public Status::NotifieeConst {
 public:
   explicit Replacer( Status& status ) : status_( status ) {
      notifierIs( &status );
   }
   void onRoute( const RouteKey& key ) override {
      if ( status_.route( key ) == nullptr ) status_.routeIs( key );
   }

 private:
   Status& status_;
};

TEST_F( RouteWriter, RebindsToAnotherObjectUnderAKnownKey ) {
   Replacer first( *agent.model );
   agent.start();
   RouteBuilder former = publishedRoute();
   vrf->routeDel( kKey );
   EXPECT_EQ( marked(), "route intf " );
   agent.publish();
   EXPECT_FALSE( hasIntf( kKey, "eth1" ) );
   former->spTreeIs( true );
   former.intf( "eth1" ).get()->forwardIs( true );
   EXPECT_EQ( marked(), "" );
   vrf->route( kKey )->routeIntfIs( intfId( "eth1" ) );
   vrf->route( kKey )->spTreeIs( true );
   EXPECT_EQ( marked(), "route intf " );
}

TEST_F( RouteWriter, WritesRefusedRecordsWhenRoomComes ) {
   agent.model->maxRoutesIs( 2 );
   agent.model->maxRouteIntfsIs( 2 );
   agent.start();
   for ( unsigned i = 0; i < 5; ++i ) {
      agent.model->routeIs( keyOf( i ) )->routeIntfIs( intfId( "eth1" ) );
   }
   Mox::Test::TraceCapture traces( "Pimsm::RouteBraneWriter/0" );
   auto expectWrites = [&]( uint64_t written, uint64_t removed ) {
      for ( const auto& writes :
            { agent.writer->routeWrites(), agent.writer->routeIntfWrites() } ) {
         EXPECT_EQ( writes.written, written );
         EXPECT_EQ( writes.removed, removed );
      }
   };
   agent.publish();
   EXPECT_EQ( agent.writer->refused(), 6U );
   EXPECT_EQ( agent.writer->routeWrites().refused, 3U );
   EXPECT_EQ( agent.writer->routeIntfWrites().refused, 3U );
   EXPECT_EQ( traces.take().size(), 6U );
   expectWrites( 2, 0 );
   // Not tried again without reason, but after a removal of what stood.
   clock.runUntil( clock.now() + 10 );
   EXPECT_EQ( agent.writer->refused(), 6U );
   unsigned removed = 0;
   for ( unsigned i : { 0, 4, 3, 2, 1 } ) {
      EXPECT_EQ( agent.tables->route().has( keyOf( i ) ), i != 0 );
      agent.model->routeDel( keyOf( i ) );
      agent.publish();
      removed += i != 0;
      expectWrites( std::min( 2 + removed, 4U ), removed );
      EXPECT_EQ( agent.tables->route().size(), std::min( 2U, 4 - removed ) ) << i;
      EXPECT_EQ( agent.tables->routeIntf().size(), std::min( 2U, 4 - removed ) );
   }
}

// A system without space, here for the first record of an empty table's file.
TEST_F( RouteWriter, TriesAgainWhenTheSystemMayHaveSpace ) {
   for ( const char* lost : { "", "/routeIntf" } ) {
      SCOPED_TRACE( lost );
      Mox::Test::TempRoot place;
      AgentSide side{ clock, place.path() };
      side.start();
      const Mox::String files = place.path() + '/' + side.path + lost;
      std::filesystem::rename( files, files + "-" );
      std::filesystem::create_directory_symlink( "/proc/self", files );
      side.model->routeIs( kKey )->routeIntfIs( intfId( "eth1" ) );
      side.publish();
      EXPECT_EQ( side.writer->refused(), *lost ? 1U : 2U );
      std::filesystem::remove( files );
      std::filesystem::rename( files + "-", files );
      clock.runUntil( clock.now() + 0.9 * side.writer->noSpaceRetry );
      EXPECT_EQ( side.tables->routeIntf().size(), 0U );
      clock.runUntil( clock.now() + 0.2 * side.writer->noSpaceRetry );
      EXPECT_EQ( side.writer->routeWrites().written, 1U );
      EXPECT_EQ( side.writer->routeIntfWrites().written, 1U );
      EXPECT_EQ( side.tables->routeIntf().size(), 1U );
   }
}

}
}
