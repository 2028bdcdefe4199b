#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "platform/loop/TestClock.h"
#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"

namespace MoxBrane::Test {
namespace {

using Numbers = std::vector<uint32_t>;

struct Side {
   Side( Mox::TestClock& clock, const std::string& root, ::Brane::TableRole role,
         bool useInotify = true )
      : manager( clock, nullptr, root, useInotify ),
        shelf(
           dynamic_cast<Shelf*>(
              createEntity( manager, "shelf", "MoxBrane::Test::Shelf" ).detach() ),
           false ),
        recorder( shelf.get() ) {
      shelf->bookControl()->initialize( role, role == ::Brane::tableWriter ? 64 : 0,
                                        false );
   }

   Corvex::EntityManager manager;
   Mox::Ptr<Shelf> shelf;
   ShelfRecorder recorder;
};

class TypedTable : public testing::Test {
 protected:
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Side agent{ clock, root.path(), ::Brane::tableWriter };
};

TEST_F( TypedTable, NotifiesItsOwnWritesAtOnce ) {
   agent.shelf->bookIs( bookOf( 1 ) );
   agent.shelf->bookIs( bookOf( 1 ) );
   EXPECT_EQ( agent.recorder.take(), ( Numbers{ 1, 1 } ) );  // an equal value too
   EXPECT_EQ( agent.shelf->bookDel( bookKey( 1 ) ), bookOf( 1 ) );
   EXPECT_EQ( agent.recorder.take(), Numbers{ 1 } );
   EXPECT_EQ( agent.shelf->bookDel( bookKey( 1 ) ), Book() );
   EXPECT_EQ( agent.recorder.take(), Numbers{} );
   EXPECT_THROW( agent.shelf->bookIs( Book() ), Mox::RangeError );  // the zero key
   EXPECT_EQ( agent.recorder.take(), Numbers{} );
}

TEST_F( TypedTable, RemovesAllButWhatComesMeanwhile ) {
   for ( uint32_t i = 1; i <= 8; ++i ) agent.shelf->bookIs( bookOf( i ) );
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
      Side reader( clock, root.path(), ::Brane::tableReader, useInotify );
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

TEST_F( TypedTable, ResumesAVisitWhereTheBookmarkStood ) {
   Side reader( clock, root.path(), ::Brane::tableReader );
   for ( uint32_t i = 1; i <= 40; ++i ) agent.shelf->bookIs( bookOf( i ) );
   for ( Side* side : { &agent, &reader } ) {
      const BookTable& table = side->shelf->book();
      std::set<uint32_t> met;
      BookKey bookmark;
      auto stopAfter = [&]( size_t count ) {
         return [&, count]( const Book& book ) {
            bookmark = book.key;
            met.insert( book.key.number );
            return met.size() < count;
         };
      };
      table.visit( nullptr, stopAfter( 20 ) );
      ASSERT_EQ( met.size(), 20U );
      uint32_t gone = bookmark.number;
      Book removed = agent.shelf->bookDel( bookmark );
      EXPECT_EQ( removed.key.number, gone );
      table.visit( &bookmark, stopAfter( 100 ) );
      EXPECT_EQ( met.size(), 40U );
      agent.shelf->bookIs( removed );
   }
}

// A mapping is trusted in nothing.
TEST_F( TypedTable, LeavesOutRecordsThatAreNoValue ) {
   agent.shelf.reset();
   ::Brane::TableWriter raw( root.path() + "/shelf/book", BookTable::makeLayout(),
                             64 );
   struct alignas( 16 ) {
      ::Brane::FlatForm<Book>::Bytes bytes;
   } record;
   for ( uint32_t i = 1; i <= 3; ++i ) {
      std::memset( &record, 0, sizeof record );
      ::Brane::FlatForm<Book>::write( bookOf( i ), record.bytes );
      if ( i == 2 ) record.bytes.colour = 77;
      raw.put( &record );
   }
   raw.ring();
   Side reader( clock, root.path(), ::Brane::tableReader );
   const BookTable& table = reader.shelf->book();
   Book ignored;
   EXPECT_EQ( table.find( bookKey( 1 ), ignored ), ::Brane::lookupFound );
   EXPECT_EQ( table.find( bookKey( 2 ), ignored ), ::Brane::lookupDamaged );
   EXPECT_TRUE( table.has( bookKey( 2 ) ) );
   unsigned met = 0;
   table.visit( nullptr, [&]( const Book& ) {
      ++met;
      return true;
   } );
   EXPECT_EQ( met, 2U );
   EXPECT_EQ( table.undecodable(), 3U );
}

}
}
