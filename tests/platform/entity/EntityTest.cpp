#include <random>

#include "platform/entity/EventCounter.h"
#include "platform/entity/Factory.h"
#include "tests/platform/entity/Fixture.h"

namespace Mox::Test {
namespace {

// Observers of one entity that come and go, change it and release it inside each
// other's calls. The expected calls are simple: a visit calls every observer that
// was registered when it began, in that order, and still is. Visits nest.
class Storm {
 public:
   explicit Storm( unsigned seed ) : random_( seed ) {}

   void run() {
      tree_ = newEntity<Tree>( "oak" );
      for ( int steps = 0; tree_ && steps < 12; ++steps ) {
         actAtRandom( 0 );
         change();
      }
      // The remaining observers forget the entity with its last reference.
      tree_.reset();
      for ( const auto& each : observers_ ) EXPECT_EQ( each->notifier(), nullptr );
      observers_.clear();
   }

 private:
   struct Observer : Tree::NotifieeConst {
      explicit Observer( Storm* its ) : storm( its ) {}
      void onHeight() override { storm->called( *this ); }
      Storm* storm;
      int registration = 0;
   };

   void attach( Observer& observer ) {
      detach( observer );
      observer.notifierIs( tree_.get() );
      registered_.push_back( observer.registration = ++last_ );
   }
   void detach( Observer& observer ) {
      observer.notifierIs( nullptr );
      std::erase( registered_, observer.registration );
   }
   // The innermost visit's next observer that is still registered; 0: none.
   int next() {
      for ( std::vector<int>& visit = visits_.back(); !visit.empty(); ) {
         int first = visit.front();
         visit.erase( visit.begin() );
         if ( std::count( registered_.begin(), registered_.end(), first ) != 0 )
            return first;
      }
      return 0;
   }
   void change() {
      if ( !tree_ ) return;
      visits_.push_back( registered_ );
      tree_->heightIs( static_cast<uint8_t>( tree_->height() + 1 ) );
      EXPECT_EQ( next(), 0 ) << "not called";
      visits_.pop_back();
   }
   void called( Observer& observer ) {
      EXPECT_EQ( observer.registration, next() );
      if ( !testing::Test::HasFailure() ) actAtRandom( visits_.size() );
   }
   void actAtRandom( size_t depth ) {
      for ( auto acts = random_() % 4; tree_ && acts > 0; --acts ) {
         const auto act = random_() % 16;
         const size_t which = random_() % ( observers_.size() + 1 );
         const bool chosen = which < observers_.size();
         if ( act < 3 ) {
            if ( depth < 3 ) change();
         } else if ( act < 6 ) {
            observers_.push_back( std::make_unique<Observer>( this ) );
            attach( *observers_.back() );
         } else if ( act < 9 && chosen ) {
            attach( *observers_[which] );
         } else if ( act < 14 && chosen ) {
            detach( *observers_[which] );
            if ( act >= 12 )
               observers_.erase( observers_.begin() + std::ptrdiff_t( which ) );
         } else if ( depth > 0 && random_() % 16 == 0 ) {
            registered_.clear();
            tree_.reset();
         }
      }
   }

   std::mt19937 random_;
   Ptr<Tree> tree_;
   std::vector<std::unique_ptr<Observer>> observers_;
   std::vector<int> registered_;
   std::vector<std::vector<int>> visits_;
   int last_ = 0;
};

TEST( Notification, CallsWhoWasThereAtItsBeginningAndStillIs ) {
   unsigned seed = std::random_device()();
   for ( unsigned run = 0; run < 3000 && !testing::Test::HasFailure(); ++run ) {
      SCOPED_TRACE( testing::Message() << "seed " << seed + run );
      Storm( seed + run ).run();
   }
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
   // The shell lives while held, is not torn down again, and is destroyed with its
   // members.
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
         for ( const Leaf& leaf : std::as_const( *tree ).leaf() )
            ASSERT_EQ( expected.at( leaf.id() ), &leaf );
         for ( const auto& [key, leaf] : expected )
            ASSERT_EQ( tree->leaf( key ), leaf );
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
      first.inc( 2 );
      ASSERT_EQ( eventCounters().size(), before + 3 );
      EXPECT_EQ( eventCounters()[before]->name(), "b" );
      EXPECT_EQ( eventCounter( "red", "a" )->value(), 2U );
      EXPECT_EQ( eventCounter( "blue", "a" )->value(), 0U );
      EXPECT_EQ( eventCounter( "blue", "b" ), nullptr );
   }
   EXPECT_EQ( eventCounters().size(), before );
}

}
}
