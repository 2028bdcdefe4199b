#include <random>

#include "platform/entity/EventCounter.h"
#include "platform/entity/Factory.h"
#include "tests/platform/entity/Fixture.h"

namespace Mox::Test {
namespace {

// Three observers that write into one log.
class Notification : public testing::Test {
 protected:
   struct Named : Tree::NotifieeConst {
      Notification* test = nullptr;
      String name;
      std::function<void()> inside;
      void onHeight() override {
         test->log.push_back( name + valueToStrep( notifier()->height() ) );
         if ( inside ) std::exchange( inside, nullptr )();
      }
   };

   Ptr<Tree> tree = newEntity<Tree>( "oak" );
   std::vector<String> log;
   std::unique_ptr<Named> a = make( "a" ), b = make( "b" ), c = make( "c" );

   std::unique_ptr<Named> make( const String& name ) {
      auto observer = std::make_unique<Named>();
      observer->test = this;
      observer->name = name;
      observer->notifierIs( tree.get() );
      return observer;
   }
};

TEST_F( Notification, FollowsTheOrderOfRegistration ) {
   a->notifierIs( nullptr );
   a->notifierIs( tree.get() );
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "b1", "c1", "a1" } ) );
}

TEST_F( Notification, DetachedIsNotCalledEvenLaterInTheVisit ) {
   a->inside = [&] { b->notifierIs( nullptr ); };
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "a1", "c1" } ) );
   log.clear();
   b->notifierIs( tree.get() );
   a->inside = [&] { b.reset(); };
   c->inside = [&] { c->notifierIs( nullptr ); };
   tree->heightIs( 2 );
   EXPECT_EQ( log, ( Heard{ "a2", "c2" } ) );
   tree->heightIs( 3 );
   EXPECT_EQ( log.back(), "a3" );
}

TEST_F( Notification, AttachedDuringAVisitIsNotCalledInIt ) {
   std::unique_ptr<Named> d;
   // The last one goes and comes back: it counts as new.
   c->inside = [&] {
      d = make( "d" );
      c->notifierIs( nullptr );
      c->notifierIs( tree.get() );
   };
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "a1", "b1", "c1" } ) );
   log.clear();
   tree->heightIs( 2 );
   EXPECT_EQ( log, ( Heard{ "a2", "b2", "d2", "c2" } ) );
}

TEST_F( Notification, AllDetachedAndNewAttachedInsideTheFirstCall ) {
   std::unique_ptr<Named> d;
   a->inside = [&] {
      a->notifierIs( nullptr );
      b->notifierIs( nullptr );
      c->notifierIs( nullptr );
      d = make( "d" );
   };
   tree->heightIs( 1 );
   EXPECT_EQ( log, Heard{ "a1" } );
}

TEST_F( Notification, ALoneObserverMayBringAnotherAndGo ) {
   b.reset();
   c.reset();
   a->inside = [&] {
      b = make( "b" );
      tree->heightIs( 2 );
      a.reset();
   };
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "a1", "a2", "b2" } ) );
   b->inside = [&] { tree.reset(); };
   tree->heightIs( 4 );
   EXPECT_EQ( log.back(), "b4" );
   EXPECT_EQ( b->notifier(), nullptr );
}

TEST_F( Notification, AChangeInsideIsNotifiedAtOnceDepthFirst ) {
   a->inside = [&] { tree->heightIs( 2 ); };
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "a1", "a2", "b2", "c2", "b2", "c2" } ) );
}

TEST_F( Notification, AttachedInANestedVisitIsCalledInNeither ) {
   std::unique_ptr<Named> d;
   a->inside = [&] {
      b->inside = [&] { d = make( "d" ); };
      tree->heightIs( 2 );
   };
   tree->heightIs( 1 );
   EXPECT_EQ( log, ( Heard{ "a1", "a2", "b2", "c2", "b2", "c2" } ) );
}

TEST_F( Notification, SurvivesTheEntityGoingInsideItsOwnVisit ) {
   a->inside = [&] { tree.reset(); };
   tree->heightIs( 1 );
   EXPECT_EQ( log, Heard{ "a1" } );
   EXPECT_EQ( a->notifier(), nullptr );
   EXPECT_EQ( c->notifier(), nullptr );
}

TEST( Teardown, NotifiesThenDropsObserversAndCannotBeRevived ) {
   Ptr<Tree> tree = newEntity<Tree>( "oak" );
   tree->leafIs( 1 );
   tree->leafIs( 2 );
   TreeRecorder recorder( tree.get() );
   Ptr<const Tree> taken;
   recorder.inside = [&]( const String& ) {
      taken = recorder.notifier();
      const_cast<Tree&>( *taken ).leafIs( 3 );
      recorder.inside = nullptr;
   };
   tree.reset();
   EXPECT_EQ( recorder.take().size(), 3U );
   EXPECT_EQ( recorder.notifier(), nullptr );
   // The shell lives while held, is not torn down again, and goes with its members.
   ASSERT_NE( taken, nullptr );
   EXPECT_EQ( taken->leaf().size(), 1U );
   EXPECT_EQ( Leaf::alive, 1 );
   taken.reset();
   EXPECT_EQ( Leaf::alive, 0 );
}

TEST( Collection, HashedMapAgreesWithAStandardMap ) {
   unsigned seed = std::random_device()();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   std::mt19937 random( seed );
   // The ranges make the index pass through all of its widths and shrink to none.
   for ( uint32_t range : { 12U, 400U, 100000U } ) {
      Ptr<Tree> tree = newEntity<Tree>( "oak" );
      std::map<uint32_t, const Leaf*> expected;
      for ( int step = 0; step < 150000; ++step ) {
         uint32_t id = random() % range;
         bool growing = ( step / 25000 ) % 2 == 0;
         if ( random() % 4 < ( growing ? 3U : 1U ) ) {
            expected[id] = tree->leafIs( id ).get();
         } else {
            auto removed = tree->leafDel( id );
            ASSERT_EQ( removed != nullptr, expected.erase( id ) == 1 );
         }
         if ( step % 1000 != 0 ) continue;
         ASSERT_EQ( tree->leaf().size(), expected.size() );
         for ( const Leaf& leaf : std::as_const( *tree ).leaf() ) {
            ASSERT_EQ( expected.at( leaf.id() ), &leaf );
         }
         for ( const auto& [key, leaf] : expected ) {
            ASSERT_EQ( tree->leaf( key ), leaf );
         }
      }
   }
   EXPECT_EQ( Leaf::alive, 0 );
}

TEST( Factory, CreatesByTypeNameAndRefusesUnknownOnes ) {
   Ptr<Entity> tree = newEntityByType( "Mox::Test::Tree", "elm" );
   EXPECT_TRUE( tree->notificationsEnabled() );
   EXPECT_EQ( tree->attributeText( "name" ), "'elm'" );
   EXPECT_THROW( newEntityByType( "Mox::Test::Bush", "" ), NameError );
}

TEST( EventCounter, IsListedInOrderWhileItsOwnerLives ) {
   size_t before = eventCounters().size();
   {
      EventCounter second( "red", "b" ), first( "red", "a" ), other( "blue", "a" );
      first.inc();
      first.inc( 2 );
      ASSERT_EQ( eventCounters().size(), before + 3 );
      EXPECT_EQ( eventCounters()[before]->name(), "b" );
      EXPECT_EQ( eventCounter( "red", "a" )->value(), 3U );
      EXPECT_EQ( eventCounter( "blue", "a" )->value(), 0U );
      EXPECT_EQ( eventCounter( "blue", "b" ), nullptr );
   }
   EXPECT_EQ( eventCounters().size(), before );
}

}
}
