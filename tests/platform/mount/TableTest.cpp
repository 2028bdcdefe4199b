#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <stdexcept>

#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"
#include "tests/support/ThrowingAssertions.h"

namespace MoxBrane::Test {
namespace {

using Mox::Test::assertionText;
using Numbers = std::vector<uint32_t>;

class TypedTable : public testing::Test {
 protected:
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Side agent{ clock, root.path(), ::Brane::tableWriter };
   BookTable& table = const_cast<BookTable&>( agent.shelf->book() );
};

TEST_F( TypedTable, RemovesAllButWhatComesMeanwhile ) {
   for ( uint32_t i = 1; i <= 8; ++i ) agent.shelf->bookIs( bookOf( i ) );
   agent.recorder.inside = [&]( const BookKey& key ) {
      if ( key.number < 10 ) agent.shelf->bookIs( bookOf( key.number + 10 ) );
   };
   agent.shelf->bookDelAll();
   std::set<uint32_t> left;
   for ( auto it = table.begin(); it != table.end(); )
      left.insert( ( *it++ ).key.number );
   EXPECT_EQ( left, ( std::set<uint32_t>{ 11, 12, 13, 14, 15, 16, 17, 18 } ) );
   EXPECT_EQ( agent.recorder.take().size(), 8U + 8U + 8U );
}

// By doorbell, and by time without one; in parts between which the loop turns and
// changes go on; and after a handler throws, whose key counts as notified.
TEST_F( TypedTable, TellsReadersOfEachChangedKeyOnce ) {
   unsigned seed = std::random_device()();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   std::mt19937 random( seed );
   std::map<uint32_t, double> written, mirror;  // weights
   std::set<uint32_t> changed, removed;
   // Never one twice: a table that grows tells no key that was given an equal value.
   double weight = 0;
   auto change = [&]( unsigned steps ) {
      CollectionControl& control = agent.control();
      for ( changed.clear(), removed.clear(); steps > 0; --steps ) {
         uint32_t number = 1 + random() % 1500;
         changed.insert( number );
         bool quiet = control.quiesced();
         if ( random() % 3 == 0 ) {
            removed.insert( number );
            quiet = written.erase( number ) == 0 && quiet;
            agent.shelf->bookDel( bookKey( number ) );
         } else {
            written[number] = ++weight;
            quiet = false;
            agent.shelf->bookIs( bookOf( number, weight ) );
         }
         EXPECT_EQ( control.quiesced(), quiet );
      }
      agent.manager.dispatch();
      EXPECT_TRUE( control.quiesced() );
      clock.advance( 0.1 );
   };
   change( 2000 );
   for ( bool useInotify : { true, false } ) {
      Side reader( clock, root.path(), ::Brane::tableReader, 0, useInotify );
      CollectionControl& control = reader.control();
      clock.advance( 0.1 );
      clock.runPass();
      EXPECT_EQ( reader.recorder.take(), Numbers{} );  // existing keys are silent
      mirror = written;
      size_t mirrored = 0;
      bool slow = false;
      reader.recorder.inside = [&]( const BookKey& key ) {
         EXPECT_TRUE( reader.recorder.soon.count( key.number ) ) << "not foretold";
         EXPECT_FALSE( control.quiesced() || reader.shelf->book().quiesced() );
         ++mirrored;
         mirror.erase( key.number );
         Book seen;
         auto found = reader.shelf->book().find( key, seen );
         if ( found == ::Brane::lookupFound ) mirror[key.number] = seen.weight;
         if ( !slow && random() % 100 == 0 ) throw std::runtime_error( "no" );
      };
      for ( unsigned round = 1; round <= 40 && !HasFailure(); ++round ) {
         SCOPED_TRACE( round );
         change( round % 4 ? random() % 20 : 2500 );
         reader.recorder.soon.clear();
         const bool goesOn = random() % 2;
         slow = random() % 2;
         const std::set<uint32_t> once = changed;
         clock.stepIs( slow ? 0.011 : 0 );  // each reading uses up the time
         unsigned turns = 0;
         mirrored = 0;
         for ( bool bell = useInotify;
               turns < 4 || ( !control.quiesced() && turns < 1000 ); ++turns ) {
            try {
               bell ? reader.manager.dispatch() : void( clock.runPass() );
               bell = false;
            } catch ( const std::runtime_error& ) {
               bell = true;
            }
            const bool inParts = turns == 0 && slow && once.size() > 1000;
            EXPECT_TRUE( !inParts || mirrored < once.size() / 2 );
            if ( !goesOn || turns >= 3 ) continue;
            change( 5 );
            bell = bell || useInotify;
         }
         clock.stepIs( 0 );
         EXPECT_EQ( mirror, written );
         EXPECT_EQ( reader.shelf->book().size(), written.size() );
         const Numbers heard = reader.recorder.take();
         for ( uint32_t number : once ) {
            // Added, removed or moved: may be visited or not, or twice.
            if ( goesOn || removed.count( number ) ) continue;
            EXPECT_EQ( std::count( heard.begin(), heard.end(), number ), 1 );
         }
      }
   }
}

// The look-up of an observer sees what stands, not what its notification was of: after a
// drain of its own, and where another instance has come before it is told. So does a
// visit whose visitor drains.
TEST_F( TypedTable, ServesNothingOlderThanTheTable ) {
   std::map<uint32_t, double> weights;
   Side reader( clock, root.path(), ::Brane::tableReader );
   auto& shelf = *reader.shelf;
   auto drain = [&] {
      clock.advance( 0.01 );
      const_cast<BookTable&>( shelf.book() ).drain();
   };
   auto look = [&]( const BookKey& key ) {
      Book seen;
      weights.erase( key.number );
      if ( shelf.book().find( key, seen ) == ::Brane::lookupFound )
         weights[key.number] = seen.weight;
   };
   bool nested = false;
   reader.recorder.inside = [&]( const BookKey& key ) {
      if ( !std::exchange( nested, true ) ) {
         agent.shelf->bookDel( bookKey( 1 ) );
         agent.shelf->bookIs( bookOf( 2, 6 ) );
         drain();
      }
      look( key );
   };
   for ( uint32_t i : { 1, 2 } ) agent.shelf->bookIs( bookOf( i, 5 ) );
   drain();
   EXPECT_EQ( weights, ( std::map<uint32_t, double>{ { 2, 6.0 } } ) );

   bool first = true;
   shelf.book().visit( [&]( const Book& book ) {
      weights[book.key.number] = book.weight;
      if ( !std::exchange( first, false ) ) return true;
      for ( uint32_t i = 2; i < 1000; ++i ) agent.shelf->bookIs( bookOf( i, 7 ) );
      for ( int part = 0; part < 10; ++part ) drain();
      return true;
   } );
   EXPECT_EQ( weights.size(), 998U );
   EXPECT_EQ( weights[2], 7.0 );
}

// Keys are announced in visiting order, each at most once, none late.
TEST_F( TypedTable, ForetellsAVisitInItsOrder ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   for ( uint32_t i = 1; i <= 100; ++i ) agent.shelf->bookIs( bookOf( i ) );
   Numbers ahead, met;
   reader.shelf->book().visit(
      [&]( const Book& book ) {
         met.push_back( book.key.number );
         EXPECT_GE( ahead.size(), met.size() );
         EXPECT_LE( ahead.size(), met.size() + 32 );
         return true;
      },
      [&]( const BookKey& key ) { ahead.push_back( key.number ); } );
   EXPECT_EQ( met.size(), 100u );
   EXPECT_EQ( ahead, met );
}

TEST_F( TypedTable, HandsItselfToAnotherControl ) {
   Mox::Ptr<CollectionControl> former( table.control() );
   auto other = Mox::newEntity<CollectionControl>( "other" );
   agent.shelf->bookIs( bookOf( 1 ) );
   EXPECT_TRUE( table.controlIs( other ) );
   EXPECT_FALSE( table.controlIs( other ) );
   EXPECT_EQ( other->role(), ::Brane::tableWriter );
   EXPECT_EQ( other->capacity(), 2000u );
   EXPECT_FALSE( other->quiesced() );
   EXPECT_EQ( other->entity(), agent.shelf );
   EXPECT_EQ( former->entity(), nullptr );
   agent.manager.dispatch();
   EXPECT_TRUE( other->quiesced() && !former->quiesced() );
   // The former handle no longer objects to another role.
   former->initialize( ::Brane::tableReader, 0, false );
   EXPECT_THROW( other->initialize( ::Brane::tableReader, 0, false ),
                 ::Brane::TableError );
   EXPECT_NE( assertionText( [&] { table.controlIs( nullptr ); } ), "" );
   Side reader( clock, root.path(), ::Brane::tableReader );
   EXPECT_EQ( reader.control().capacity(), 0U );
   EXPECT_NE( assertionText( [&] { table.controlIs( &reader.control() ); } ), "" );
}

TEST_F( TypedTable, CommitsOnlyAValueBuiltInPlace ) {
   BookTable::InPlace built = table.inPlace(), wild = table.inPlace();
   built.is( bookOf( 1 ) );
   table.commit( &built );
   EXPECT_NE( assertionText( [&] { table.commit( &built ); } ), "" );
   EXPECT_NE( assertionText( [&] {
                 table.commit( static_cast<BookTable::InPlace*>( nullptr ) );
              } ),
              "" );
   wild->key.address.family = 77;
   EXPECT_NE( assertionText( [&] { table.commit( &wild ); } ), "" );
   // Refused like any other write, and the memory is freed.
   for ( int i = 0; i < 40; ++i ) {
      BookTable::InPlace zero = table.inPlace();
      EXPECT_THROW( table.commit( &zero ), Mox::RangeError );
   }
   EXPECT_EQ( table.size(), 1u );
   EXPECT_EQ( agent.recorder.take(), Numbers{ 1 } );
}

// No mapping is trusted. Sound records that are no value, by an unknown number and
// by a key in another form: a writer's mount removes them, since nothing else ever
// would, from a new instance and from the old one in place.
TEST_F( TypedTable, LeavesOutRecordsThatAreNoValueAndDropsThemAsWriter ) {
   for ( uint32_t capacity : { 64U, 2000U } ) {
      agent.shelf.reset();
      for ( uint32_t i = 1; i <= 4; ++i ) {
         auto bytes = flatBytesOf( bookOf( i ) );
         if ( i == 2 ) bytes.colour = 77;
         if ( i == 4 ) bytes.key.address.address[15] = 1;  // IPv4 has 4 bytes
         ::Brane::TableWriter raw( Side::file( root.path() ),
                                   BookTable::makeLayout(), capacity );
         raw.put( &bytes );
      }
      Side reader( clock, root.path(), ::Brane::tableReader );
      const BookTable& read = reader.shelf->book();
      Book ignored;
      EXPECT_EQ( read.find( bookKey( 1 ), ignored ), ::Brane::lookupFound );
      EXPECT_EQ( read.find( bookKey( 2 ), ignored ), ::Brane::lookupDamaged );
      EXPECT_TRUE( read.has( bookKey( 2 ) ) );
      EXPECT_EQ( read.keys().size(), 3U );
      EXPECT_EQ( read.undecodable(), 3U );
      Side next( clock, root.path(), ::Brane::tableWriter );
      const BookTable& kept = next.shelf->book();
      EXPECT_EQ( kept.size(), 2U );
      EXPECT_TRUE( kept.has( bookKey( 1 ) ) && kept.has( bookKey( 3 ) ) );
      EXPECT_THAT( kept.control()->problem(), testing::HasSubstr( "no value" ) );
      // Readers are notified of their removal.
      next.manager.dispatch();
      clock.advance( 0.1 );
      reader.manager.dispatch();
      EXPECT_THAT( reader.recorder.take(), testing::Contains( 2U ) );
      EXPECT_FALSE( read.has( bookKey( 2 ) ) );
      EXPECT_EQ( read.size(), 2U );
   }
}

}
}
