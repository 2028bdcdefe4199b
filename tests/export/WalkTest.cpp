// A random walk over the model with a writer and a reader.
//
// The table's content follows from the marking rules: at each write of a key, the
// model's fields at that moment. A key is written if and only if a change marked
// it.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <vector>

#include "tests/export/Content.h"
#include "tests/support/ExportPair.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

// The marks of keys since the last sync point.
template <class Key>
class Marks {
 public:
   void insert( const Key& key ) {
      ++marks_[key].count;
      marks_[key].dirty = true;
   }
   // Notes a write; returns false when the key had fewer marks.
   bool written( const Key& key ) {
      auto found = marks_.find( key );
      if ( found == marks_.end() || found->second.count == 0 ) return false;
      --found->second.count;
      found->second.dirty = false;
      return true;
   }
   // The keys that were not written after their last mark; starts anew.
   std::vector<Key> takeUnwritten() {
      std::vector<Key> keys;
      for ( const auto& [key, mark] : std::exchange( marks_, {} ) ) {
         if ( mark.dirty ) keys.push_back( key );
      }
      return keys;
   }

 private:
   struct Mark {
      unsigned count = 0;
      bool dirty = false;
   };
   std::map<Key, Mark> marks_;
};

class Walk : public testing::TestWithParam<Vantu::AddressFamily> {
 protected:
   // Is notified of each write and notes the expected record. At a removal it may make
   // the next step itself and have it reviewed at once: nothing older is written later.
   class Shadow : public Brane::Status::NotifieeConst {
    public:
      explicit Shadow( Walk& walk ) : walk_( walk ) {
         notifierIs( walk.agent.tables.get() );
      }
      using NotifieeConst::onRoute;
      using NotifieeConst::onRouteIntf;
      void onRoute( const RouteKey& key ) override {
         EXPECT_TRUE( walk_.markedRoutes.written( key ) ) << "unmarked " << key;
         const Route* route = walk_.agent.model->route( key );
         content.routes.erase( key );
         if ( route == nullptr ) return goOn();
         const Brane::Route record = Brane::doGetBraneRouteFromRoute( *route );
         EXPECT_EQ( walk_.agent.tables->route( key ), record );
         content.routes.emplace( key, record );
      }
      void onRouteIntf( const RouteIntfKey& key ) override {
         EXPECT_TRUE( walk_.markedIntfs.written( key ) ) << "unmarked " << key;
         const Route* route = walk_.agent.model->route( key.routeKey );
         const Intf* intf =
            route != nullptr ? route->routeIntf( key.intfId ) : nullptr;
         content.intfs.erase( key );
         if ( intf == nullptr ) return goOn();
         const Brane::Intf record =
            Brane::doGetBraneIntfFromRouteIntf( key.routeKey, *intf );
         EXPECT_EQ( walk_.agent.tables->routeIntf( key ), record );
         content.intfs.emplace( key, record );
      }

      Content content;

    private:
      void goOn() {
         if ( walk_.pick( 4 ) != 0 ) return;
         walk_.step();
         walk_.agent.writer->doReview();
      }

      Walk& walk_;
   };

   Mox::Test::TempRoot root;
   unsigned seed = std::random_device()();
   std::mt19937 random{ seed };
   Mox::TestClock clock;
   ReaderSide reader{ clock, root.path(), GetParam() };
   AgentSide agent{ clock, root.path(), GetParam() };
   Marks<RouteKey> markedRoutes;
   Marks<RouteIntfKey> markedIntfs;

   unsigned pick( unsigned n ) { return random() % n; }
   bool coin() { return pick( 2 ) == 1; }

   Vantu::IpGenAddr address( const char* v4, const char* v6, unsigned n ) {
      bool ipv4 = GetParam() == Vantu::AddressFamily::ipv4;
      return Vantu::IpGenAddr( ( ipv4 ? v4 : v6 ) + std::to_string( n ) );
   }
   RouteKey anyKey() {
      Vantu::IpGenAddr group =
         address( "233.252.0.", "ff0e::db8:", 1 + pick( 30 ) );
      if ( pick( 4 ) == 0 ) {
         return { Vantu::IpGenAddr::unspecified( GetParam() ), group };
      }
      return { address( "192.0.2.", "2001:db8::", 1 + pick( 4 ) ), group };
   }
   Vantu::IntfId anyIntf() {
      return Vantu::IntfId( "eth" + std::to_string( pick( 6 ) ) );
   }
   Rpf anyRpf() {
      if ( pick( 3 ) == 0 ) return {};
      return { anyIntf(),
               address( "198.51.100.", "fe80::", pick( 3 ) ),
               static_cast<uint8_t>( pick( 3 ) ),
               { pick( 3 ) } };
   }

   // A change, and whether it marks the route if it changes its record.
   struct Act {
      bool marks;
      std::function<void()> does;
   };
   void doOneOf( const RouteKey& key, std::initializer_list<Act> acts ) {
      Brane::Route before = recordOf( key );
      const Act& act = acts.begin()[pick( static_cast<unsigned>( acts.size() ) )];
      act.does();
      if ( act.marks && !( recordOf( key ) == before ) ) markedRoutes.insert( key );
   }
   Brane::Route recordOf( const RouteKey& key ) const {
      return Brane::doGetBraneRouteFromRoute( *agent.model->route( key ) );
   }

   void step();
   void changeRoute( Route& route );
   void changeUpstream( Route& route );
   void changeUmh( const RouteKey& key, UpstreamInfo& umh );
   void changeUmhFrr( const RouteKey& key, UpstreamInfo& umhFrr );
   void changeIntf( Route& route );
   void changeIntfFields( const RouteIntfKey& key, Intf& intf );
   void deleteRoute( const RouteKey& key );
   void checkPublished( Content content );
};

void Walk::step() {
   RouteKey key = anyKey();
   Mox::Ptr<Route> route = agent.model->route( key );
   if ( route == nullptr ) {
      agent.model->routeIs( key );
      markedRoutes.insert( key );
      return;
   }
   unsigned what = pick( 100 );
   if ( what < 8 ) return deleteRoute( key );
   if ( what < 30 ) return changeRoute( *route );
   if ( what < 60 ) return changeUpstream( *route );
   changeIntf( *route );
}

void Walk::deleteRoute( const RouteKey& key ) {
   Mox::Ptr<Route> removed = agent.model->routeDel( key );
   markedRoutes.insert( key );
   for ( const Intf& intf : removed->routeIntf() ) {
      markedIntfs.insert( { key, intf.intfId() } );
   }
}

void Walk::changeRoute( Route& route ) {
   using Flags = Route::RouteFlags;
   doOneOf(
      route.key(),
      { { true, [&] { route.routeFlagsIs( Flags( pick( Flags::limit + 1 ) ) ); } },
        { true, [&] { route.spTreeIs( !route.spTree() ); } },
        { false, [&] { route.creationTimeIs( pick( 100 ) ); } },
        { false,
          [&] {
             route.iifSwitchStateIs( Route::IifSwitchStateInstance( pick( 5 ) ) );
          } },
        { false, [&] { route.iifSwitchPendingIs( coin() ); } },
        { false, [&] { route.upJoinStateIs( coin() ? upJoined : upNotJoined ); } },
        { false, [&] { route.changeFlagsIs( ChangeFlags( pick( 8 ) ) ); } },
        { false, [&] { route.mfibChangeCountInc( 1 ); } } } );
}

void Walk::changeUpstream( Route& route ) {
   const RouteKey& key = route.key();
   unsigned what = pick( 20 );
   bool marks = false;
   if ( what == 0 ) {
      marks = route.umhDel() != nullptr;
   } else if ( what == 1 ) {
      marks = route.umhFrrDel() != nullptr;
   } else if ( what < 12 ) {
      marks = route.umh() == nullptr;
      if ( marks ) route.umhIs()->routeIs( &route );
      changeUmh( key, *route.umh() );
   } else {
      marks = route.umhFrr() == nullptr;
      if ( marks ) route.umhFrrIs()->routeIs( &route );
      changeUmhFrr( key, *route.umhFrr() );
   }
   if ( marks ) markedRoutes.insert( key );
}

void Walk::changeUmh( const RouteKey& key, UpstreamInfo& umh ) {
   auto rptState = [&] { return Mox::enumInstance<UpRptState>( pick( 3 ) ); };
   doOneOf( key, { { true, [&] { umh.rpfIs( anyRpf() ); } },
                   { true, [&] { umh.rpfAttachedIs( coin() ); } },
                   { true, [&] { umh.mbrIifIs( anyIntf() ); } },
                   { true, [&] { umh.upRptStateIs( rptState() ); } },
                   { false, [&] { umh.prevRpfIs( anyRpf() ); } },
                   { false, [&] { umh.prevRptStateIs( rptState() ); } },
                   { false, [&] { umh.rpIs( anyRpf().neighbor ); } } } );
}

void Walk::changeUmhFrr( const RouteKey& key, UpstreamInfo& umhFrr ) {
   auto rptState = [&] { return Mox::enumInstance<UpRptState>( pick( 3 ) ); };
   doOneOf( key, { { true, [&] { umhFrr.rpfIs( anyRpf() ); } },
                   { true, [&] { umhFrr.rpfAttachedIs( coin() ); } },
                   // These changes of the fast-reroute record deliberately mark
                   // nothing.
                   { false, [&] { umhFrr.mbrIifIs( anyIntf() ); } },
                   { false, [&] { umhFrr.upRptStateIs( rptState() ); } } } );
}

void Walk::changeIntf( Route& route ) {
   RouteIntfKey key{ route.key(), anyIntf() };
   Mox::Ptr<Intf> intf = route.routeIntf( key.intfId );
   if ( intf == nullptr ) {
      route.routeIntfIs( key.intfId );
      markedIntfs.insert( key );
   } else if ( pick( 10 ) == 0 ) {
      route.routeIntfDel( key.intfId );
      markedIntfs.insert( key );
   } else {
      changeIntfFields( key, *intf );
   }
}

void Walk::changeIntfFields( const RouteIntfKey& key, Intf& intf ) {
   if ( pick( 3 ) == 0 ) {
      markedIntfs.insert( key );
      return intf.forwardIs( !intf.forward() );
   }
   intf.fastForwardIs( coin() );
   intf.joinStateIs( Intf::JoinStateInstance( pick( 3 ) ) );
   intf.lastJoinReceivedIs( pick( 100 ) );
   intf.rptStateIs( Intf::RptStateInstance( pick( 5 ) ) );
   intf.lastRptPruneReceivedIs( pick( 100 ) );
   intf.toBeDeletedIs( coin() );
   intf.allowRpInUseIs( coin() );
   intf.lastAssertActionIs( static_cast<uint8_t>( pick( 256 ) ) );
   intf.localReceiverIncludeIs( coin() );
   intf.localReceiverExcludeIs( coin() );
   AssertInfo info;
   if ( coin() )
      info = { iAmAssertLoser, { coin(), pick( 9 ), { pick( 9 ) }, {} } };
   intf.assertInfoIs( info );
}

// A remaining mark must be of a key that neither side has.
void Walk::checkPublished( Content content ) {
   for ( const RouteKey& key : markedRoutes.takeUnwritten() ) {
      ASSERT_EQ( agent.model->route( key ), nullptr ) << "not written " << key;
      ASSERT_EQ( content.routes.count( key ), 0U ) << "not removed " << key;
   }
   for ( const RouteIntfKey& key : markedIntfs.takeUnwritten() ) {
      ASSERT_EQ( content.intfs.count( key ), 0U ) << "not removed " << key;
      const Route* route = agent.model->route( key.routeKey );
      ASSERT_TRUE( route == nullptr || route->routeIntf( key.intfId ) == nullptr )
         << "not written " << key;
   }
   // The first turn notifies of new tables, the second of their records.
   for ( int turn = 0; turn < 4; ++turn ) reader.follow();
   ASSERT_EQ( Content::of( *reader.tables ), content );
   for ( auto& [key, record] : content.routes ) {
      // Without a fast-reroute RPF the mirror has no record with the "attached"
      // flag.
      if ( record.rpfFrr == Rpf() ) record.rpfFrrAttached = false;
   }
   ASSERT_EQ( Content::of( *reader.model ), content );
   ASSERT_EQ( reader.model->sgRoutes() + reader.model->wcRoutes(),
              content.routes.size() );
}

TEST_P( Walk, TablesFollowTheMarkingRulesAndTheMirrorTheTables ) {
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   std::printf( "seed %u\n", seed );
   reader.start();
   agent.start();
   Shadow shadow( *this );
   clock.stepIs( 0.0005 );  // a review takes several slices
   constexpr int kSteps = 50000;
   for ( int i = 1; i <= kSteps; ++i ) {
      step();
      if ( pick( 20 ) == 0 ) {
         clock.advance( 0.02 );
         clock.runPass();
         if ( coin() ) agent.manager.dispatch();
      }
      if ( i % 500 != 0 ) continue;
      agent.publish();
      checkPublished( shadow.content );
      if ( HasFatalFailure() || HasNonfatalFailure() ) return;
   }
   EXPECT_GT( agent.writer->slices(), agent.writer->reviews() );
}

INSTANTIATE_TEST_SUITE_P( Families, Walk,
                          testing::Values( Vantu::AddressFamily::ipv4,
                                           Vantu::AddressFamily::ipv6 ) );

}
}
