#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/export/Content.h"
#include "tests/support/ExportPair.h"
#include "tests/support/ModelRecorders.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using testing::ElementsAre;

const RouteIntfKey kIntfKey{ kKey, intfId( "eth1" ) };

// Tables written by the test, and a reader of them.
class RouteReader : public testing::Test {
 protected:
   RouteReader() {
      agent.mount();
      side.start();
   }
   Brane::Status& tables() const { return *agent.tables; }
   void deliver() {
      agent.manager.dispatch();
      side.follow();
   }
   // Lines without the facility and the reader's address.
   auto lines( Mox::Test::TraceCapture& traces ) {
      auto taken = traces.take();
      const Mox::String start =
         "RouteBraneReader(" + Mox::pointerText( side.reader.get() ) + ")";
      for ( auto& line : taken ) {
         line.erase( 0, strlen( "Pimsm::RouteBraneReader " ) );
         size_t at = line.find( start );
         if ( at != Mox::String::npos ) line.erase( at, start.size() );
      }
      return taken;
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   AgentSide agent{ clock, root.path() };
   ReaderSide side{ clock, root.path() };
};

TEST_F( RouteReader, TracesEachStep ) {
   const Mox::String route = "(192.0.2.1, 233.252.0.1)";
   const Mox::String intf = route + " 'eth1'";
   Mox::Test::TraceCapture traces( "Pimsm::RouteBraneReader/9" );
   tables().routeIs( Brane::Route( kKey ) );
   deliver();
   EXPECT_THAT(
      lines( traces ),
      ElementsAre( "4 handleBraneRoute(), creating/updating route " + route,
                   "8 handleRoute" ) );
   tables().routeIntfIs( Brane::Intf( kIntfKey ) );
   deliver();
   EXPECT_THAT(
      lines( traces ),
      ElementsAre( "4 handleBraneRouteIntf(), updating route intf " + intf ) );
   tables().routeIntfDel( kIntfKey );
   deliver();
   EXPECT_THAT(
      lines( traces ),
      ElementsAre( "4 handleBraneRouteIntf(), deleting route intf " + intf ) );
   tables().routeDel( kKey );
   deliver();
   EXPECT_THAT( lines( traces ),
                ElementsAre( "4 handleBraneRoute(), deleting route " + route,
                             "8 handleRoute" ) );
   side.reader->handleBraneRouteIntf( kIntfKey );
   EXPECT_THAT(
      lines( traces ),
      ElementsAre(
         "4 handleBraneRouteIntf(), no route for route intf " + intf,
         "4 handleBraneRoute(), deleting route " + route,
         "4 handleBraneRouteIntf(), ignoring notificaton, no route for " + intf ) );
   auto again = Brane::RouteBraneReaderSmIs( side.model, side.tables );
   EXPECT_THAT( lines( traces ), ElementsAre( "8 RouteBraneReader(" +
                                              Mox::pointerText( again.get() ) +
                                              ")handleInitialized" ) );
}

// Records come and go in any order, and are met before their notification: by a call, or in a
// reload. The mirror is what stands in the tables, interfaces without their route left out.
TEST_F( RouteReader, FollowsTablesWhateverTheirOrder ) {
   const unsigned seed = std::random_device()();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   std::mt19937 random( seed );
   auto oneOf = [&]( unsigned count ) { return unsigned( random() % count ); };
   auto anyKey = [&] {
      const std::string group = "233.252.0." + std::to_string( 1 + oneOf( 3 ) );
      return oneOf( 3 ) == 0 ? wcKey( group )
             : kKey.group == addr( group )
                ? kKey
                : sgKey( "192.0.2." + std::to_string( 1 + oneOf( 2 ) ), group );
   };
   for ( int step = 0; step < 2500 && !HasFailure(); ++step ) {
      const RouteKey key = anyKey();
      const RouteIntfKey intf{ key, intfId( oneOf( 2 ) ? "eth1" : "eth2" ) };
      switch ( oneOf( 8 ) ) {
         case 0:
            tables().routeDel( key );
            break;
         case 1:
            tables().routeIntfDel( intf );
            break;
         case 2:
            side.reader->handleBraneRouteIntf( intf );
            break;
         case 3:
            if ( Route* route = side.model->route( key ) ) {
               route->umhDel();
               tables().routeIs( Brane::Route( key ) );
            }
            break;
         case 4:
         case 5: {
            Brane::Route record( key );
            record.creationTime = step;
            if ( oneOf( 2 ) )
               record.rpfFrr = rpfBy( "eth" + std::to_string( oneOf( 2 ) ) );
            tables().routeIs( record );
            break;
         }
         default: {
            Brane::Intf record( intf );
            record.joinState = oneOf( 2 ) ? Intf::joined : Intf::noInfo;
            tables().routeIntfIs( record );
         }
      }
      if ( oneOf( 3 ) != 0 ) continue;
      ReaderSide late( clock, root.path() );
      std::vector<const ReaderSide*> readers = { &side };
      if ( oneOf( 8 ) == 0 ) {
         late.mount();
         late.reader = Brane::routeBraneReaderSmFactory( late.model, late.tables );
         late.reload();
         readers.push_back( &late );
      }
      deliver();
      if ( readers.size() == 2 ) late.follow();
      Content held = Content::of( tables() );
      std::erase_if( held.intfs, [&]( const auto& entry ) {
         return !held.routes.contains( entry.first.routeKey );
      } );
      std::map<RouteKey, std::set<RouteKey>> groups;  // of a source
      size_t wildcards = 0;
      for ( const auto& [each, record] : held.routes ) {
         groups[{ each.source, {} }].insert( each );
         wildcards += each.source.isUnspecified();
      }
      for ( const ReaderSide* reader : readers ) {
         const Status& model = *reader->model;
         EXPECT_EQ( Content::of( model ), held ) << "step " << step;
         EXPECT_EQ( model.wcRoutes(), wildcards );
         EXPECT_EQ( model.sgRoutes(), held.routes.size() - wildcards );
         EXPECT_EQ( model.source().size(), groups.size() );
         for ( const auto& [source, keys] : groups )
            EXPECT_EQ( model.source( source.source )->sourceGroup().size(),
                       keys.size() );
         for ( const Route& route : model.route() ) {
            EXPECT_TRUE( route.umh() != nullptr && route.umh()->route() == &route );
            const UpstreamInfo* backup = route.umhFrr();
            EXPECT_TRUE( backup == nullptr ||
                         ( backup->frr() && backup->route() == &route ) );
         }
      }
   }
}

// A reader from before the tables: each route comes before its interfaces, though a
// burst comes in parts.
TEST_F( RouteReader, HearsOfRoutesFirst ) {
   Mox::Test::TempRoot otherRoot;
   ReaderSide early( clock, otherRoot.path() );
   early.start();
   AgentSide late( clock, otherRoot.path() );
   late.mount();
   for ( unsigned i = 1; i <= 600; ++i ) {
      RouteKey key = sgKey( "192.0.2." + std::to_string( i % 250 + 1 ),
                            "233.252.0." + std::to_string( i / 250 + 1 ) );
      late.tables->routeIntfIs( Brane::Intf( { key, intfId( "eth1" ) } ) );
      late.tables->routeIs( Brane::Route( key ) );
   }
   late.manager.dispatch();
   Mox::Test::TraceCapture traces( "Pimsm::RouteBraneReader/4" );
   clock.stepIs( 0.011 );
   auto complete = [&] {
      unsigned intfs = 0;
      for ( const Route& route : early.model->route() )
         intfs += unsigned( route.routeIntf().size() );
      return intfs == 600;
   };
   for ( int turn = 0; turn < 100 && !complete(); ++turn ) early.follow();
   clock.stepIs( 0 );
   EXPECT_TRUE( complete() );
   for ( const auto& line : traces.take() ) {
      EXPECT_EQ( line.find( "no route for" ), Mox::String::npos ) << line;
   }
}

TEST_F( RouteReader, CountsRightBesideOtherObservers ) {
   const RouteKey other = sgKey( "192.0.2.1", "233.252.0.2" );
   const RouteKey wildcards[] = { wcKey( "233.252.0.1" ), wcKey( "ff3e::1" ) };
   auto expect = [&]( uint32_t sg, uint32_t wc, size_t sources, size_t groups ) {
      deliver();
      EXPECT_EQ( side.model->sgRoutes(), sg );
      EXPECT_EQ( side.model->wcRoutes(), wc );
      EXPECT_EQ( side.model->source().size(), sources );
      const Source* source = side.model->source( kKey.source );
      EXPECT_EQ( source != nullptr ? source->sourceGroup().size() : 0, groups );
   };
   // An update counts nothing.
   for ( int i = 0; i < 2; ++i ) {
      for ( const RouteKey& key : { kKey, other, wildcards[0], wildcards[1] } )
         tables().routeIs( Brane::Route( key ) );
      expect( 2, 2, 3, 2 );
   }
   tables().routeDel( other );
   expect( 1, 2, 3, 1 );
   // Another reader replaces it.
   side.reader = nullptr;
   side.reader = Brane::routeBraneReaderSmFactory( side.model, side.tables );
   side.model->wcRoutesIs( 0 );
   tables().routeDel( kKey );
   tables().routeDel( wildcards[1] );
   expect( 0, 0, 1, 0 );

   // An observer notified before the reader may remove the route at once.
   {
      side.reader = nullptr;
      StatusRecorder first( side.model.get() );
      first.inside = [&]( const Mox::String& what ) {
         if ( what.rfind( "route", 0 ) == 0 ) side.model->routeDel( kKey );
      };
      side.reader = Brane::routeBraneReaderSmFactory( side.model, side.tables );
      for ( const RouteKey& key : { other, kKey } )
         tables().routeIs( Brane::Route( key ) );
      expect( 1, 0, 2, 1 );
      for ( const RouteKey& key : { other, kKey } ) tables().routeDel( key );
      expect( 0, 0, 1, 0 );
   }
   // An observer may remove the route that is being counted.
   StatusRecorder remover( side.model.get() );
   remover.inside = [&]( const Mox::String& what ) {
      if ( what == "sgRoutes" ) side.model->routeDel( kKey );
   };
   tables().routeIs( Brane::Route( kKey ) );
   expect( 0, 0, 1, 0 );
}

// The setters of each copy in order: observers see the former path before the new
// one.
TEST_F( RouteReader, CopiesInTheRecordsOrder ) {
   Mox::Ptr<Route> route = side.model->routeIs( kKey );
   Mox::Ptr<Intf> intf = route->routeIntfIs( kIntfKey.intfId );
   RouteRecorder ofRoute( route.get() );
   UpstreamRecorder ofUmh( route->umh() );
   IntfRecorder ofIntf( intf.get() );
   Mox::Test::Heard heard;
   ofRoute.inside = ofUmh.inside =
      ofIntf.inside = [&]( const Mox::String& what ) { heard.push_back( what ); };
   Brane::Route record = Brane::doGetBraneRouteFromRoute( *route );
   record.creationTime = 12;
   record.rpf = rpfBy( "eth0" );
   record.prevRpf = rpfBy( "eth2" );
   record.rpfAttached = true;
   record.mbrIif = intfId( "eth3" );
   record.rpfFrr = rpfBy( "eth4" );
   record.iifSwitchState = Route::wrongVifRecd;
   record.iifSwitchPending = true;
   record.upJoinState = upJoined;
   record.upRptState = upRptPruned;
   Brane::doUpdateRoute( *route, record );
   EXPECT_THAT( std::exchange( heard, {} ),
                ElementsAre( "creationTime", "prevRpf", "rpf", "rpfAttached",
                             "mbrIif", "iifSwitchState", "iifSwitchPending",
                             "upJoinState", "upRptState", "umhFrr" ) );
   EXPECT_EQ( Brane::doGetBraneRouteFromRoute( *route ), record );
   Brane::Intf joined( kIntfKey );
   joined.toBeDeleted = joined.forward = joined.fastForward = true;
   joined.allowRpInUse = true;
   joined.joinState = Intf::joined;
   joined.rptState = Intf::rptPruned;
   joined.lastJoinReceived = joined.lastRptPruneReceived = 5;
   joined.assertInfo.assertState = iAmAssertWinner;
   joined.lastAssertAction = 3;
   joined.localReceiverInclude = joined.localReceiverExclude = true;
   Brane::doUpdateIntf( *intf, joined );
   EXPECT_EQ( Brane::doGetBraneIntfFromRouteIntf( kKey, *intf ), joined );
   EXPECT_THAT(
      heard, ElementsAre( "toBeDeleted", "forward", "fastForward", "allowRpInUse",
                          "joinState", "lastJoinReceived", "rptState",
                          "lastRptPruneReceived", "assertInfo", "lastAssertAction",
                          "localReceiverInclude", "localReceiverExclude" ) );
}

}
}
