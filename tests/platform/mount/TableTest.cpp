#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <stdexcept>

#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"
#include "tests/support/ThrowingAssertions.h"

namespace MoxBrane::Test {
namespace {

using Numbers = std::vector<uint32_t>;

class TypedTable : public testing::Test {
 protected:
   // Lets the reader hear of all that was written.
   Numbers heardBy( Side& reader ) {
      agent.manager.dispatch();
      clock.advance( 0.1 );
      reader.manager.dispatch();
      return reader.recorder.take();
   }
   void add( uint32_t count ) {
      for ( uint32_t i = 1; i <= count; ++i ) agent.shelf->bookIs( bookOf( i ) );
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Side agent{ clock, root.path(), ::Brane::tableWriter };
   BookTable& table = const_cast<BookTable&>( agent.shelf->book() );
};

TEST_F( TypedTable, NotifiesItsOwnWritesAtOnce ) {
   agent.shelf->bookIs( bookOf( 1 ) );
   agent.shelf->bookIs( bookOf( 1 ) );
   EXPECT_EQ( agent.recorder.take(), ( Numbers{ 1, 1 } ) );  // an equal value too
   EXPECT_EQ( agent.shelf->bookDel( bookKey( 1 ) ), bookOf( 1 ) );
   EXPECT_EQ( agent.recorder.take(), Numbers{ 1 } );
   EXPECT_EQ( agent.shelf->bookDel( bookKey( 1 ) ), Book() );
   EXPECT_THROW( agent.shelf->bookIs( Book() ), Mox::RangeError );  // the zero key
   EXPECT_EQ( agent.recorder.take(), Numbers{} );
}

TEST_F( TypedTable, RemovesAllButWhatComesMeanwhile ) {
   add( 8 );
   agent.recorder.inside = [&]( const BookKey& key ) {
      if ( key.number < 10 ) agent.shelf->bookIs( bookOf( key.number + 10 ) );
   };
   agent.shelf->bookDelAll();
   EXPECT_EQ( agent.shelf->book().size(), 8U );
   EXPECT_EQ( agent.recorder.take().size(), 8U + 8U + 8U );
}

// By doorbell, and by time where there is none.
TEST_F( TypedTable, TellsReadersOfEachChangedKeyOnce ) {
   for ( bool useInotify : { true, false } ) {
      agent.shelf->bookIs( bookOf( 9 ) );
      Side reader( clock, root.path(), ::Brane::tableReader, 0, useInotify );
      clock.advance( 0.1 );
      clock.runPass();
      EXPECT_EQ( reader.recorder.take(), Numbers{} );  // what stood is silent
      EXPECT_TRUE( reader.shelf->book().has( bookKey( 9 ) ) );
      for ( int i = 0; i < 3; ++i ) agent.shelf->bookIs( bookOf( 1, i ) );
      agent.shelf->bookIs( bookOf( 2 ) );
      agent.shelf->bookDel( bookKey( 2 ) );
      agent.shelf->bookDel( bookKey( 9 ) );
      agent.manager.dispatch();
      clock.advance( 0.1 );
      if ( useInotify ) {
         reader.manager.dispatch();
      } else {
         clock.runPass();
      }
      Numbers heard = reader.recorder.take();
      std::sort( heard.begin(), heard.end() );
      std::erase( heard, 2 );  // came and went: may be told
      EXPECT_EQ( heard, ( Numbers{ 1, 9 } ) ) << useInotify;
      Book seen;
      ASSERT_EQ( reader.shelf->book().find( bookKey( 1 ), seen ),
                 ::Brane::lookupFound );
      EXPECT_EQ( seen.weight, 2 );
      EXPECT_FALSE( reader.shelf->book().has( bookKey( 9 ) ) );
      EXPECT_EQ( reader.shelf->book().size(), 1U );
   }
}

// The doorbell rings once; the loop gets its turn between the parts.
TEST_F( TypedTable, TakesUpABurstInParts ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   reader.manager.dispatch();
   constexpr uint32_t kBooks = 1500;
   add( kBooks );
   agent.manager.dispatch();
   clock.advance( 0.1 );
   clock.stepIs( 0.011 );  // any look at the time finds it up
   reader.manager.dispatch();
   Numbers heard = reader.recorder.take();
   EXPECT_LT( heard.size(), kBooks / 2 );
   ASSERT_FALSE( heard.empty() );
   // Told already, and not yet told: once more the one, once only the other.
   std::vector<bool> told( kBooks + 1 );
   for ( uint32_t number : heard ) told[number] = true;
   auto untold = std::find( told.begin() + 1, told.end(), false ) - told.begin();
   agent.shelf->bookDel( bookKey( heard[0] ) );
   agent.shelf->bookIs( bookOf( static_cast<uint32_t>( untold ), 7 ) );
   unsigned turns = 0;
   while ( heard.size() < kBooks + 1 && ++turns < 1000 ) {
      clock.runPass();
      Numbers more = reader.recorder.take();
      heard.insert( heard.end(), more.begin(), more.end() );
   }
   EXPECT_GT( turns, 1u );
   clock.stepIs( 0 );
   for ( int i = 0; i < 3; ++i ) reader.manager.dispatch();
   EXPECT_EQ( reader.recorder.take(), Numbers{} );
   EXPECT_EQ( heard.size(), kBooks + 1 );
   EXPECT_EQ( std::count( heard.begin(), heard.end(), heard[0] ), 2 );
   EXPECT_EQ( std::set<uint32_t>( heard.begin(), heard.end() ).size(), kBooks );
   EXPECT_FALSE( reader.shelf->book().has( bookKey( heard[0] ) ) );
}

// Whoever throws has heard his key; the others' turn comes.
TEST_F( TypedTable, GoesOnBehindAHandlerThatThrows ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   reader.manager.dispatch();
   add( 5 );
   reader.recorder.inside = [&]( const BookKey& ) {
      reader.recorder.inside = {};
      throw std::runtime_error( "no" );
   };
   EXPECT_THROW( heardBy( reader ), std::runtime_error );
   Numbers heard = heardBy( reader );
   EXPECT_EQ( std::set<uint32_t>( heard.begin(), heard.end() ).size(), 5u );
   EXPECT_EQ( heard.size(), 5u );
}

// Keys are foretold in visiting order, each at most once, none late.
TEST_F( TypedTable, ForetellsAVisitInItsOrder ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   add( 100 );
   Numbers ahead, met;
   reader.shelf->book().visit(
      nullptr,
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

// Quiet: what was written was rung, what was rung was told.
TEST_F( TypedTable, SaysWhenNothingIsPending ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   CollectionControl& written = *agent.shelf->bookControl();
   CollectionControl& read = *reader.shelf->bookControl();
   EXPECT_TRUE( written.quiesced() && read.quiesced() );
   agent.shelf->bookIs( bookOf( 1 ) );
   EXPECT_FALSE( written.quiesced() );
   agent.manager.dispatch();
   EXPECT_TRUE( written.quiesced() );
   agent.shelf->bookDel( bookKey( 7 ) );
   EXPECT_TRUE( written.quiesced() );  // there was none
   agent.shelf->bookDel( bookKey( 1 ) );
   EXPECT_FALSE( written.quiesced() );
   agent.shelf->bookIs( bookOf( 2 ) );
   agent.manager.dispatch();
   clock.advance( 0.1 );
   unsigned pending = 0;
   reader.recorder.inside = [&]( const BookKey& ) {
      pending += !read.quiesced() && !reader.shelf->book().quiesced();
   };
   reader.manager.dispatch();
   EXPECT_EQ( pending, reader.recorder.take().size() );
   EXPECT_GT( pending, 0u );
   EXPECT_TRUE( read.quiesced() );
}

TEST_F( TypedTable, HandsItselfToAnotherControl ) {
   Mox::Ptr<CollectionControl> former( table.control() );
   auto other = Mox::newEntity<CollectionControl>( "other" );
   agent.shelf->bookIs( bookOf( 1 ) );
   EXPECT_TRUE( table.controlIs( other ) );
   EXPECT_FALSE( table.controlIs( other ) );
   EXPECT_EQ( agent.shelf->bookControl(), other );
   EXPECT_EQ( other->role(), ::Brane::tableWriter );
   EXPECT_EQ( other->capacity(), 2000u );
   EXPECT_EQ( other->mountStatus(), mountReady );
   EXPECT_FALSE( other->quiesced() );
   EXPECT_EQ( other->entity(), agent.shelf );
   EXPECT_EQ( former->entity(), nullptr );
   agent.manager.dispatch();
   EXPECT_TRUE( other->quiesced() );
   EXPECT_FALSE( former->quiesced() );
   // The former handle has nothing left to say against another role.
   former->initialize( ::Brane::tableReader, 0, false );
   EXPECT_THROW( other->initialize( ::Brane::tableReader, 0, false ),
                 ::Brane::TableError );
   using Mox::Test::assertionText;
   EXPECT_NE( assertionText( [&] { table.controlIs( nullptr ); } ), "" );
   Side reader( clock, root.path(), ::Brane::tableReader );
   EXPECT_NE(
      assertionText( [&] { table.controlIs( reader.shelf->bookControl() ); } ),
      "" );
}

// The record is built in the table's memory; nobody sees it before the commit.
TEST_F( TypedTable, CommitsAValueBuiltInPlace ) {
   agent.shelf->bookIs( bookOf( 1, 5 ) );
   agent.recorder.take();
   BookTable::InPlace built = table.inPlace();
   built.is( bookOf( 1, 6 ) );
   built->weight = 7;
   { BookTable::InPlace dropped = table.inPlace(); }
   Book seen;
   EXPECT_EQ( table.find( bookKey( 1 ), seen ), ::Brane::lookupFound );
   EXPECT_EQ( seen.weight, 5 );
   table.commit( &built );
   EXPECT_EQ( agent.recorder.take(), Numbers{ 1 } );
   EXPECT_EQ( table.find( bookKey( 1 ), seen ), ::Brane::lookupFound );
   EXPECT_EQ( seen, bookOf( 1, 7 ) );
   using Mox::Test::assertionText;
   EXPECT_NE( assertionText( [&] { table.commit( &built ); } ), "" );
   EXPECT_NE( assertionText( [&] { table.commit( nullptr ); } ), "" );
   BookTable::InPlace wild = table.inPlace();
   wild->key.address.family = 77;
   EXPECT_NE( assertionText( [&] { table.commit( &wild ); } ), "" );
   // Refused as another write would be, and the memory is given back.
   for ( int i = 0; i < 40; ++i ) {
      BookTable::InPlace zero = table.inPlace();
      EXPECT_THROW( table.commit( &zero ), Mox::RangeError );
   }
   EXPECT_EQ( table.size(), 1u );
   EXPECT_EQ( agent.recorder.take(), Numbers{} );
}

// Whole records that are no value: an unknown number, and a key in another form.
void writeSenseless( const std::string& root, uint32_t capacity ) {
   ::Brane::TableWriter raw( Side::file( root ), BookTable::makeLayout(),
                             capacity );
   struct alignas( 16 ) {
      ::Brane::FlatForm<Book>::Bytes bytes;
   } record;
   for ( uint32_t i = 1; i <= 4; ++i ) {
      std::memset( &record, 0, sizeof record );
      ::Brane::FlatForm<Book>::write( bookOf( i ), record.bytes );
      if ( i == 2 ) record.bytes.colour = 77;
      if ( i == 4 ) record.bytes.key.address.address[15] = 1;  // IPv4 has 4 bytes
      raw.put( &record );
   }
}

// A change, and another program's table before the reader has heard of it; then the
// table comes back with the same value.
TEST_F( TypedTable, TellsAChangeThatCouldNotBeReadWhenItCan ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   reader.manager.dispatch();
   agent.shelf->bookIs( bookOf( 1 ) );
   agent.shelf.reset();
   ::Brane::Layout other = BookTable::makeLayout();
   for ( auto& field : other.fields ) {
      if ( field.name == "lent" ) field.name = "borrowed";
   }
   { ::Brane::TableWriter( Side::file( root.path() ), other, 2000 ); }
   bool found = false;
   reader.recorder.inside = [&]( const BookKey& key ) {
      Book seen;
      found = reader.shelf->book().find( key, seen ) == ::Brane::lookupFound;
   };
   auto follow = [&] {
      for ( int turn = 0; turn < 3; ++turn ) {
         clock.advance( 0.1 );
         reader.manager.dispatch();
      }
   };
   follow();
   EXPECT_EQ( reader.shelf->bookControl()->mountStatus(), mountMismatch );
   Side next( clock, root.path(), ::Brane::tableWriter );
   follow();
   EXPECT_EQ( reader.shelf->bookControl()->mountStatus(), mountReady );
   EXPECT_TRUE( found );
   EXPECT_TRUE( reader.shelf->book().quiesced() );
}

// A mapping is trusted in nothing. Mounted for writing, it loses what nothing else
// would ever remove: a new instance, and the old one in place.
TEST_F( TypedTable, LeavesOutRecordsThatAreNoValueAndDropsThemAsWriter ) {
   for ( uint32_t capacity : { 64U, 2000U } ) {
      agent.shelf.reset();
      writeSenseless( root.path(), capacity );
      Side reader( clock, root.path(), ::Brane::tableReader );
      const BookTable& read = reader.shelf->book();
      Book ignored;
      EXPECT_EQ( read.find( bookKey( 1 ), ignored ), ::Brane::lookupFound );
      EXPECT_EQ( read.find( bookKey( 2 ), ignored ), ::Brane::lookupDamaged );
      EXPECT_TRUE( read.has( bookKey( 2 ) ) );
      unsigned met = 0;
      read.visit( nullptr, [&]( const Book& ) { return ++met > 0; } );
      EXPECT_EQ( met, 3U );
      EXPECT_EQ( read.undecodable(), 3U );
      Side next( clock, root.path(), ::Brane::tableWriter );
      const BookTable& kept = next.shelf->book();
      EXPECT_EQ( kept.size(), 2U );
      EXPECT_TRUE( kept.has( bookKey( 1 ) ) && kept.has( bookKey( 3 ) ) );
      const Mox::String problem = kept.control()->problem();
      EXPECT_NE( problem.find( "no value" ), Mox::String::npos ) << problem;
      // Readers hear that they have gone.
      next.manager.dispatch();
      Numbers heard = heardBy( reader );
      EXPECT_EQ( std::count( heard.begin(), heard.end(), 2U ), 1 ) << capacity;
      EXPECT_FALSE( read.has( bookKey( 2 ) ) );
      EXPECT_EQ( read.size(), 2U );
   }
}

}
}
