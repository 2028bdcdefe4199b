#include "engine/ForwardingEngine.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "engine/RecordState.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode;
using namespace Routing::Pim::SparseMode::Test;

const char* const kSource = "192.0.2.1";
const char* const kGroup = "233.252.0.1";

// One change after another, each followed: afterwards values are what the macros say, and the
// source's records those with state of their own or in the group's route.
class Forwarding : public testing::Test {
 protected:
   unsigned oneOf( unsigned count ) { return unsigned( random() % count ); }
   bool flip() { return oneOf( 2 ) != 0; }
   Vantu::IntfId anyIntf() {
      return intfId( "eth" + std::to_string( oneOf( 3 ) ) );
   }
   Routing::Pim::RouteKey anyKey() {
      const char* group = oneOf( 3 ) == 0 ? "233.252.0.2" : kGroup;
      return flip() ? wcKey( group ) : sgKey( kSource, group );
   }

   // One of these attributes gets one of its values.
   struct Input {
      enum { ofRecord, ofRoute, ofPath, ofPim } of;
      const char* name;
      std::vector<const char*> values;
   };
   static inline const std::vector<const char*> kFlags = { "false", "true" };
   static inline const std::vector<const char*> kIntfs = { "'eth0'", "'eth1'",
                                                           "'eth2'" };
   static inline const std::vector<Input> kInputs = {
      { Input::ofRecord, "joinState", { "noInfo", "joined", "prunePending" } },
      { Input::ofRecord, "rptState", { "rptNoInfo", "rptPruned" } },
      { Input::ofRecord, "localReceiverInclude", kFlags },
      { Input::ofRecord, "localReceiverExclude", kFlags },
      { Input::ofRoute, "spTree", kFlags },
      { Input::ofRoute, "mbr", kFlags },
      { Input::ofRoute, "switching", kFlags },
      { Input::ofRoute, "iifSwitching", kFlags },
      { Input::ofRoute, "katExpired", kFlags },
      { Input::ofRoute,
        "iifSwitchState",
        { "notSwitching", "switchIifUpdated", "wrongVifRecd" } },
      { Input::ofPath, "rpfAttached", kFlags },
      { Input::ofPath, "mbrIif", kIntfs },
      { Input::ofPath, "frr", kFlags },
      { Input::ofPim, "iAmDr", kFlags } };

   void change() {
      const Routing::Pim::RouteKey key = anyKey();
      if ( oneOf( 20 ) == 0 ) {
         vrf->routeDel( key );
         return;
      }
      Mox::Ptr<Route> route = vrf->routeIs( key );
      route->wildCardIs( key.source.isUnspecified() );
      auto path = [&] { return flip() ? route->umhIs() : route->umhFrrIs(); };
      const Routing::Pim::Rpf rpf =
         oneOf( 4 ) == 0 ? Routing::Pim::Rpf() : rpfBy( anyIntf().name() );
      const char* winner = flip() ? "[S] 192.0.2.5 [1/1]" : "[S] 192.0.2.9 [1/1]";
      // Engines that set states on records say so.
      auto record = [&] {
         engine.handleRecord( key );
         return route->routeIntfIs( anyIntf() );
      };
      switch ( const unsigned which = oneOf( kInputs.size() + 10 ) ) {
         case 0:
            path()->rpfIs( rpf );
            break;
         case 1:
            path()->prevRpfIs( rpf );
            break;
         case 2:
            path()->routeIs( oneOf( 4 ) == 0 ? nullptr : route.get() );
            break;
         case 3:
            flip() ? route->umhDel() : route->umhFrrDel();
            break;
         case 4:
            record()->assertInfoIs( { iAmAssertLoser, assertMetric( winner ) } );
            break;
         case 5:
            record()->assertInfoIs( {} );
            break;
         case 6:
            vrf->pimStatusIs( flip() ? vrf.pim() : nullptr );
            break;
         case 7:
            vrf.pim()->intfDel( anyIntf() );
            break;
         case 8:
            vrf.pim()
               ->intfIs( anyIntf() )
               ->addrIs( { addr( flip() ? "192.0.2.5" : "192.0.2.6" ), 24 } );
            break;
         case 9:
            route->routeIntfDel( anyIntf() );
            break;
         default: {
            const Input& input = kInputs[which - 10];
            Mox::Ptr<Mox::Entity> entity = route;
            if ( input.of == Input::ofRecord ) entity = record();
            if ( input.of == Input::ofPath ) entity = path();
            if ( input.of == Input::ofPim ) entity = vrf.pim()->intfIs( anyIntf() );
            entity->attributeTextIs( input.name,
                                     input.values[oneOf( input.values.size() )] );
         }
      }
   }

   // What the macros say, in the engine's stead.
   static void expectFollowed( const Route& route ) {
      const Route* wc = route.wc();
      const bool ofWc = route.wildCard();
      for ( const Intf& intf : route.routeIntf() ) {
         EXPECT_EQ( intf.forward(), intf.forwardDesired() );
         EXPECT_EQ( intf.fastForward(), intf.fastForwardDesired() );
         EXPECT_TRUE( ofWc || !isBare( intf, wc ) );
      }
      EXPECT_EQ( route.upJoinState() == upJoined,
                 ofWc ? route.joinDesiredWc() : route.joinDesiredSg() );
      if ( ofWc ) return;
      for ( const Intf& theirs :
            wc != nullptr ? wc->routeIntf() : route.routeIntf() )
         EXPECT_TRUE( !holdsState( theirs ) ||
                      route.routeIntf( theirs.intfId() ) != nullptr );
      if ( route.umh() == nullptr ) return;
      EXPECT_EQ( route.upRptState(), wc == nullptr || !wc->rptJoinDesiredWc()
                                        ? upRptNotJoined
                                     : route.pruneDesiredSgRpt() ? upRptPruned
                                                                 : upRptNotPruned );
   }

   const unsigned seed = std::random_device()();
   std::mt19937 random{ seed };
   Vrf vrf = std::move( Vrf().pimIntf( "eth0", "192.0.2.5" ) );
   ForwardingEngine engine{ vrf.ptr() };
};

TEST_F( Forwarding, EveryChangeIsFollowed ) {
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   for ( int step = 0; step < 30000 && !HasFailure(); ++step ) {
      change();
      std::map<const Route*, UpRptState> before;
      for ( const Route& route : vrf->route() ) before[&route] = route.upRptState();
      unsigned rounds = 0;
      EXPECT_TRUE( engine.review( [&] { return ++rounds > 100; } ) ) << "no rest";
      EXPECT_FALSE( engine.pending() );
      for ( const Route& route : vrf->route() ) {
         SCOPED_TRACE( testing::Message() << "step " << step << ' ' << &route );
         expectFollowed( route );
         if ( route.umh() == nullptr || before[&route] == route.upRptState() )
            continue;
         EXPECT_EQ( route.prevRptState(), before[&route] );
      }
   }
}

// Nothing is lost when the time is up, and a constantly marked route does not delay
// the others.
TEST_F( Forwarding, ReviewsInSlices ) {
   const char* const groups[] = { "233.252.0.1", "233.252.0.2", "233.252.0.3" };
   for ( const char* group : groups )
      vrf.wc( group ).rpf( "eth0" ).intf( "eth1" ).joined();
   engine.review( [] { return false; } );
   for ( const char* group : groups )
      vrf.wc( group ).intf( "eth1" )->forwardIs( false );
   ForwardingEngine second( vrf.ptr() );
   unsigned slices = 1;
   while ( !second.review( [&] {
      vrf.wc( groups[0] ).intf( "eth2" )->localReceiverIncludeIs( slices % 2 != 0 );
      return true;
   } ) && slices < 4 )
      ++slices;
   for ( const char* group : groups )
      EXPECT_TRUE( vrf.wc( group ).intf( "eth1" )->forward() ) << group;
}

}
}
