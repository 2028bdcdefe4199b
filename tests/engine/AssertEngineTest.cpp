#include "engine/AssertEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/engine/ScriptRun.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using namespace Routing::Pim::SparseMode;

const char* const kGroup = "233.252.0.1";
const char* const kSource = "192.0.2.1";

// Received metrics. The router's own is [110/20] of 203.0.113.5, on the tree of its route.
const std::map<std::string, const char*> kMetrics = {
   { "best", "[S] 203.0.113.9 [90/1]" },
   { "good", "[S] 203.0.113.9 [110/10]" },
   { "higher", "[S] 203.0.113.9 [110/20]" },
   { "other", "[S] 203.0.113.8 [110/5]" },
   { "bad", "[S] 203.0.113.9 [120/1]" },
   { "badOther", "[S] 203.0.113.8 [120/1]" },
   { "rptBest", "[R] 203.0.113.9 [90/1]" },
   { "rptBad", "[R] 203.0.113.9 [120/1]" },
   { "cancel", "[R] 203.0.113.9 [2147483647/4294967295]" },
   { "cancelOther", "[R] 203.0.113.8 [2147483647/4294967295]" } };

// A (*,G) or an (S,G) route or both, joined on eth1, which is where the asserts come in.
struct Link {
   explicit Link( const std::string& there ) {
      vrf.pimIntf( "eth0", "192.0.2.5" ).pimIntf( "eth1", "203.0.113.5" );
      for ( char route : there )
         at( route ).rpf( "eth0" ).upJoined().intf( "eth1" ).joined();
   }
   RouteBuilder at( char route ) {
      return route == '*' ? vrf.wc( kGroup ).rpTree()
                          : vrf.sg( kSource, kGroup ).spTree();
   }
   static Routing::Pim::RouteKey key( char route ) {
      return route == '*' ? wcKey( kGroup ) : sgKey( kSource, kGroup );
   }
   void receive( char route, const std::string& metricName ) {
      const AssertMetric metric = assertMetric( kMetrics.at( metricName ) );
      engine.receive( intfId( "eth1" ), metric.address,
                      { addr( kGroup ), 32, key( route ).source, metric.rptBit,
                        metric.preference.value(), metric.metric.value } );
   }
   void join( const EncodedSource& source ) {
      PimJoinPrune joins;
      joins.groups.push_back( { addr( kGroup ), 32, { source }, {} } );
      engine.receive( intfId( "eth1" ), joins );
   }
   // "S good" is an assert of the source, "* rptBest" one of the group.
   void act( const ScriptWords& words ) {
      const std::string& event = words[0];
      const char route = words.size() > 1 ? words[1][0] : 'S';
      if ( event == "S" || event == "*" ) receive( event[0], words[1] );
      if ( event == "data" ) engine.handleData( key( 'S' ), intfId( "eth1" ) );
      if ( event == "join" ) join( { key( 'S' ).source, 32, true, false, false } );
      if ( event == "joinWc" )
         join( { addr( "198.51.100.1" ), 32, true, true, true } );
      if ( event == "joinRpt" )
         join( { key( 'S' ).source, 32, true, false, true } );
      if ( event == "lose" )
         engine.handleNeighborLost( intfId( words.back() ),
                                    addr( "203.0.113." + words[1] ) );
      if ( event == "gone" ) engine.handleIntfGone( intfId( "eth1" ) );
      if ( event == "leave" ) at( route ).intf( "eth1" ).joinState( Intf::noInfo );
      if ( event == "move" ) at( 'S' ).rpf( words[1] );
      if ( event == "improve" )
         at( 'S' ).rpf( rpfBy( "eth0", "192.0.2.254", 1, 1 ) );
      // A group's lost assert would end its sources' ones.
      if ( vrf->route().size() != 1 ) return;
      for ( char each : { 'S', '*' } ) engine.review( key( each ) );
   }
   std::string state() {
      std::string out;
      for ( char route : { 'S', '*' } ) {
         Mox::Ptr<Intf> intf = routes.find( key( route ), intfId( "eth1" ) );
         if ( intf == nullptr || intf->assertInfo().assertState == assertNoInfo )
            continue;
         const bool won = intf->assertInfo().assertState == iAmAssertWinner;
         out +=
            fmt::format( "{}{} {} {}", out.empty() ? "" : "; ", route,
                         won ? "won" : "lost", intf->assertWinner().bytes()[3] );
      }
      return out.empty() ? "-" : out;
   }

   Mox::TestClock clock;
   Vrf vrf;
   VrfConfig config;
   Topology topology{ config };
   Routes routes{ vrf.ptr(), clock, topology, nullptr };
   RouterCounters counters;
   AssertEngine engine{ routes, clock, counters };
};

struct Row {
   const char* routes;
   const char* script;
   const char* history;
};

// RFC 7761, 4.6.1 and 4.6.2: state by event. `data` comes in on eth1.
const Row kRows[] = {
   // (S,G), no info
   { "S", "0 S bad", "0 S won 5" },
   { "S", "0 S rptBest", "0 S won 5" },
   { "S", "0 data", "0 S won 5" },
   { "S", "0 leave, 1 data", "" },
   { "S", "0 leave, 1 S bad", "" },
   { "S", "0 leave, 1 S good", "" },
   { "S", "0 leave, 1 S cancel", "" },
   { "S", "0 S good", "0 S lost 9, 180 -" },
   { "S", "0 S higher", "0 S lost 9, 180 -" },
   // winner
   { "S", "0 data, 10 S bad, 20 join", "0 S won 5" },
   { "S", "0 data, 10 S good", "0 S won 5, 10 S lost 9, 190 -" },
   { "S", "0 data, 10 leave", "0 S won 5, 10 -" },
   // loser
   { "S", "0 S good, 10 S other", "0 S lost 9, 10 S lost 8, 190 -" },
   { "S", "0 S other, 10 S good", "0 S lost 8, 180 -" },
   { "S", "0 S best, 10 S good", "0 S lost 9, 190 -" },
   { "S", "0 S good, 10 S bad", "0 S lost 9, 10 -" },
   { "S", "0 S good, 10 S badOther", "0 S lost 9, 180 -" },
   { "S", "0 S good, 10 S cancel", "0 S lost 9, 10 -" },
   { "S", "0 S good, 10 S cancelOther", "0 S lost 9, 180 -" },
   { "S", "0 S other, 10 S rptBest", "0 S lost 8, 180 -" },
   { "S", "0 S good, 10 lose 9 eth1", "0 S lost 9, 10 -" },
   { "S", "0 S good, 10 lose 8 eth1, 10 lose 9 eth0", "0 S lost 9, 180 -" },
   { "S", "0 S good, 10 leave", "0 S lost 9, 10 -" },
   { "S", "0 S good, 5 joinRpt, 10 join", "0 S lost 9, 10 -" },
   { "S", "0 S good, 10 improve", "0 S lost 9, 10 -" },
   { "S", "0 move eth1, 1 S good, 10 move eth0", "1 S lost 9, 10 -" },
   { "S", "0 S good, 10 move eth1", "0 S lost 9, 180 -" },
   // (*,G): asserts of the shared tree only
   { "*", "0 * rptBad", "0 * won 5" },
   { "*", "0 * good, 1 * bad", "" },
   { "*", "0 data, 5 * best, 10 * rptBest", "0 * won 5, 10 * lost 9, 190 -" },
   { "*", "0 * rptBest, 10 * cancel", "0 * lost 9, 10 -" },
   // The group's machine hears what the source's one does not take up.
   { "*", "0 S rptBest", "0 * lost 9, 180 -" },
   { "S*", "0 S rptBest, 1 S rptBest, 2 * rptBest",
     "0 S won 5, 2 S won 5; * lost 9, 182 S won 5" },
   { "S*", "0 S other, 1 S rptBest", "0 S lost 8, 180 -" },
   { "S*", "0 S good, 0 * rptBest, 1 join, 2 joinWc",
     "0 S lost 9, 0 S lost 9; * lost 9, 1 * lost 9, 2 -" },
   { "S*", "0 S good, 0 * rptBest, 1 lose 9 eth1",
     "0 S lost 9, 0 S lost 9; * lost 9, 1 -" },
   { "S*", "0 S good, 0 * rptBest, 1 gone",
     "0 S lost 9, 0 S lost 9; * lost 9, 1 -" },
};

TEST( Asserts, FollowTheTables ) {
   for ( const Row& row : kRows ) {
      Link link( row.routes );
      EXPECT_EQ( playScript( link.clock, row.script, link ), row.history )
         << row.routes << ": " << row.script;
      EXPECT_TRUE( row.routes[0] == 'S' ||
                   link.vrf->route( Link::key( 'S' ) ) == nullptr );
   }
}

TEST( Asserts, TellActionsAndCountWhatTheyHear ) {
   Link link( "S" );
   auto intf = link.at( 'S' ).intf( "eth1" );
   std::string actions;
   for ( const char* metric : { "bad", "bad", "good", "best", "bad", "good" } ) {
      link.receive( 'S', metric );
      actions += std::to_string( intf->lastAssertAction() );
   }
   EXPECT_EQ( actions, "132256" );
   EXPECT_EQ( intf->rxInferiorAssert(), 3 );
   EXPECT_EQ( intf->rxPreferredAssert(), 3 );
}

TEST( Asserts, ThatMakeNoSenseAreRefused ) {
   Link link( "*" );
   auto receive = [&]( const char* source, const char* group, uint8_t length ) {
      link.engine.receive( intfId( "eth1" ), addr( "203.0.113.9" ),
                           { addr( group ), length, addr( source ), true, 1, 1 } );
   };
   receive( "0.0.0.0", "192.0.2.1", 32 );
   receive( "0.0.0.0", "224.0.0.5", 32 );
   receive( "0.0.0.0", kGroup, 24 );
   receive( "224.1.1.1", kGroup, 32 );
   receive( "0.0.0.0", "233.252.0.2", 32 );
   EXPECT_EQ( link.counters.text(),
              "refused: notMulticast 1, linkLocalGroup 1, "
              "partialMask 1, badSource 1, noRoute 1" );
   EXPECT_EQ( link.state(), "-" );
}

}
}
