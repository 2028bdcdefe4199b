#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/Conversion.h"
#include "tests/support/ExportPair.h"
#include "tests/support/ModelRecorders.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using testing::ElementsAre;

const RouteKey kKey = sgKey( "192.0.2.1", "233.252.0.1" );
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
   const Route* seen( const RouteKey& key = kKey ) const {
      return side.model->route( key );
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

TEST_F( RouteReader, PullsTheRouteInForAnEarlyInterface ) {
   tables().routeIs( Brane::Route( kKey ) );
   tables().routeIntfIs( Brane::Intf( kIntfKey ) );
   Mox::Test::TraceCapture traces( "Pimsm::RouteBraneReader/4" );
   side.reader->handleBraneRouteIntf( kIntfKey );
   EXPECT_THAT( lines( traces ),
                ElementsAre( "4 handleBraneRouteIntf(), no route for route intf "
                             "(192.0.2.1, 233.252.0.1) 'eth1'",
                             "4 handleBraneRoute(), creating/updating route "
                             "(192.0.2.1, 233.252.0.1)",
                             "4 handleBraneRouteIntf(), updating route intf "
                             "(192.0.2.1, 233.252.0.1) 'eth1'" ) );
   ASSERT_NE( seen(), nullptr );
   EXPECT_NE( seen()->routeIntf( intfId( "eth1" ) ), nullptr );
}

// No order is promised between the two tables.
TEST_F( RouteReader, KeepsInterfacesWhoseRouteComesLater ) {
   Brane::Intf record( kIntfKey );
   record.joinState = Intf::joined;
   tables().routeIntfIs( record );
   deliver();
   EXPECT_EQ( seen(), nullptr );
   tables().routeIs( Brane::Route( kKey ) );
   deliver();
   ASSERT_NE( seen(), nullptr );
   ASSERT_NE( seen()->routeIntf( intfId( "eth1" ) ), nullptr );
   EXPECT_EQ( seen()->routeIntf( intfId( "eth1" ) )->joinState(), Intf::joined );

   // A route goes and comes back while its interface's record stays.
   tables().routeDel( kKey );
   deliver();
   EXPECT_EQ( seen(), nullptr );
   tables().routeIs( Brane::Route( kKey ) );
   deliver();
   ASSERT_NE( seen(), nullptr );
   EXPECT_NE( seen()->routeIntf( intfId( "eth1" ) ), nullptr );

   // The interface's record goes meanwhile.
   tables().routeDel( kKey );
   deliver();
   tables().routeIntfDel( kIntfKey );
   deliver();
   tables().routeIs( Brane::Route( kKey ) );
   deliver();
   EXPECT_EQ( seen()->routeIntf().size(), 0U );
}

// A record may be looked up, or met in the reload, before its notification, and be
// gone by then: both changes in one batch.
TEST_F( RouteReader, WhatItFoundByItselfGoesAgain ) {
   tables().routeIs( Brane::Route( kKey ) );
   tables().routeIntfIs( Brane::Intf( kIntfKey ) );
   side.reader->handleBraneRouteIntf( kIntfKey );
   ASSERT_NE( seen(), nullptr );
   tables().routeIntfDel( kIntfKey );
   tables().routeDel( kKey );
   deliver();
   EXPECT_EQ( seen(), nullptr );

   ReaderSide late( clock, root.path() );
   late.mount();
   tables().routeIs( Brane::Route( kKey ) );
   tables().routeIntfIs( Brane::Intf( kIntfKey ) );
   late.reader = Brane::routeBraneReaderSmFactory( late.model, late.tables );
   late.reload();
   ASSERT_NE( late.model->route( kKey ), nullptr );
   tables().routeIntfDel( kIntfKey );
   agent.manager.dispatch();
   late.follow();
   EXPECT_EQ( late.model->route( kKey )->routeIntf().size(), 0U );
   tables().routeDel( kKey );
   agent.manager.dispatch();
   late.follow();
   EXPECT_EQ( late.model->route( kKey ), nullptr );
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

// The random walk tests the values.
TEST_F( RouteReader, KeepsTheFastRerouteRecordWhileThereIsAPath ) {
   const UpstreamInfo* former = nullptr;
   for ( const char* intf : { "eth5", "eth6" } ) {
      Brane::Route record( kKey );
      record.rpfFrr = rpfBy( intf );
      tables().routeIs( record );
      deliver();
      ASSERT_NE( seen()->umhFrr(), nullptr );
      EXPECT_TRUE( former == nullptr || former == seen()->umhFrr() );
      former = seen()->umhFrr();
      EXPECT_TRUE( former->frr() );
      EXPECT_EQ( former->route(), seen() );
   }
   side.model->route( kKey )->umhDel();
   tables().routeIs( Brane::Route( kKey ) );
   deliver();
   EXPECT_EQ( seen()->umhFrr(), nullptr );
   EXPECT_EQ( seen()->umh()->route(), seen() ) << "one that was made anew";
}

TEST_F( RouteReader, CountsRoutesAndKeepsSources ) {
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

// Another observer may keep the sources as well, and be notified of each route
// first.
class SourceKeeper : public Status::NotifieeConst {
 public:
   explicit SourceKeeper( Status& status ) : status_( status ) {
      notifierIs( &status );
   }
   void onRoute( const RouteKey& key ) override {
      if ( status_.route( key ) == nullptr ) {
         status_.sourceDel( key.source );
      } else {
         status_.sourceIs( key.source )->sourceGroupIs( key.group, true );
      }
   }

 private:
   Status& status_;
};

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
