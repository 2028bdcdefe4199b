#include "Support.h"
#include "platform/shm/TableWalk.h"

namespace Brane::Test {
namespace {

class Follower : public TableTest {
 protected:
   // Its owner looks the key up.
   static void meet( Followed& followed, uint64_t id ) {
      const Key key{ id, 0 };
      Record record;
      Position at = noPosition;
      EXPECT_EQ( followed.reader.lookup( &key, &record, &at ), lookupFound );
      followed.follower.met( at, &key );
   }
};

TEST_F( Follower, HearsEachLaterChangeOnce ) {
   Followed followed( path, layout );
   EXPECT_FALSE( followed.drain().stateChanged );
   EXPECT_EQ( found( followed.reader, 1 ), std::nullopt );
   TableWriter writer( path, layout, 10, options );
   put( writer, 1, 1 );
   // A table that appears was empty until then.
   EXPECT_TRUE( followed.drain().stateChanged );
   EXPECT_EQ( followed.changes, 1u );
   // Records from before the follower are not reported.
   Followed late( path, layout );
   EXPECT_FALSE( late.drain().stateChanged );
   EXPECT_EQ( late.changes, 0u );
   put( writer, 2, 1 );
   put( writer, 2, 2 );
   EXPECT_TRUE( followed.follower.pending() );
   EXPECT_EQ( followed.drain().written, 1u );
   EXPECT_EQ( followed.content.at( 2 ), Record::of( 2, 2 ) );
   EXPECT_FALSE( followed.follower.pending() );
   // Writing an equal value is a change.
   put( writer, 2, 2 );
   EXPECT_EQ( followed.drain().written, 1u );
   remove( writer, 1 );
   EXPECT_EQ( followed.drain().removed, 1u );
   // Added and removed in between: never known.
   put( writer, 5, 1 );
   remove( writer, 5 );
   remove( writer, 2 );
   put( writer, 2, 9 );
   EXPECT_EQ( late.drain().written, 1u );
   auto drained = followed.drain();
   EXPECT_EQ( drained.written, 1u );
   EXPECT_EQ( drained.removed, 0u );
   // Who finds keys before they were told hears of their ends, too, and of no other.
   for ( uint64_t id : { 7, 8, 9 } ) {
      put( writer, id, 1 );
      meet( followed, id );
   }
   drained = followed.drain( 1 );
   EXPECT_EQ( drained.written, 1u );
   EXPECT_EQ( drained.removed, 0u );
   for ( uint64_t id : { 7, 8, 9 } ) remove( writer, id );
   uint64_t ended = 0;
   do {
      drained = followed.drain( 1 );
      ended += drained.removed;
   } while ( drained.more );
   EXPECT_GE( ended, 3u );
   EXPECT_EQ( followed.drain().removed, 0u );
   // As who walks, in two parts: of two keys that go between them it met the one.
   remove( writer, 2 );
   followed.drain();
   for ( uint64_t id : { 8, 9, 10 } ) put( writer, id, 1 );
   std::vector<uint64_t> walked;
   size_t most = 1;
   auto visitor = [&]( Position, const void* visited ) {
      if ( walked.size() == most ) return false;
      walked.push_back( static_cast<const Record*>( visited )->key.id );
      return true;
   };
   TableWalk walk( followed.follower );
   EXPECT_FALSE( walk.advance( visitor ) );
   remove( writer, walked[0] );
   remove( writer, walked[0] == 9 ? 8 : 9 );
   most = 3;
   EXPECT_TRUE( walk.advance( visitor ) );
   EXPECT_EQ( walked.size(), 2u );
   drained = followed.drain();
   EXPECT_EQ( drained.written, 1u );
   EXPECT_FALSE( drained.more );
   EXPECT_EQ( drained.removed, 1u );
   EXPECT_EQ( followed.content, contentOf( writer ) );
}

TEST_F( Follower, TellsWhatDiffersInANewInstance ) {
   auto writer = std::make_unique<TableWriter>( path, layout, 10, options );
   for ( uint64_t id = 1; id <= 6; ++id ) put( *writer, id, 1 );
   Followed followed( path, layout );
   // Not yet reported when the instance changes.
   put( *writer, 1, 2 );
   remove( *writer, 2 );
   writer.reset();
   writer = std::make_unique<TableWriter>( path, layout, 50, options );
   put( *writer, 3, 3 );
   remove( *writer, 4 );
   put( *writer, 7, 1 );
   auto drained = followed.drain();
   EXPECT_TRUE( drained.stateChanged );
   EXPECT_EQ( drained.written, 3u );  // 1, 3 and 7
   EXPECT_EQ( drained.removed, 2u );
   EXPECT_EQ( followed.content, contentOf( *writer ) );
   // While the table cannot be read, the known records are kept.
   writer.reset();
   Layout other = layout;
   other.recordSize += 8;
   { TableWriter converted( path, other, 10, options ); }
   drained = followed.drain();
   EXPECT_TRUE( drained.stateChanged );
   EXPECT_EQ( followed.reader.state(), readerMismatch );
   EXPECT_EQ( drained.removed, 0u );
   writer = std::make_unique<TableWriter>( path, layout, 10, options );
   remove( *writer, 7 );
   put( *writer, 1, 5 );
   followed.drain();
   EXPECT_EQ( followed.content, contentOf( *writer ) );
   // Both the removal and the return are reported. After another removal the files
   // are a successor's.
   writer->removeFiles();
   drained = followed.drain();
   EXPECT_EQ( drained.removed, 4u );
   EXPECT_EQ( followed.reader.state(), readerAbsent );
   TableWriter successor( path, layout, 10, options );
   put( successor, 1, 9 );
   writer->removeFiles();
   followed.drain();
   EXPECT_EQ( followed.content, contentOf( successor ) );
   EXPECT_TRUE( writerAlive( path ) );
}

// Only a retired table's records go with it.
TEST_F( Follower, KeepsWhatWasInFilesThatVanish ) {
   TableWriter writer( path, layout, 10, options );
   for ( uint64_t id = 1; id <= 3; ++id ) put( writer, id, 1 );
   Followed followed( path, layout );
   auto expectKept = [&]( const char* problem ) {
      auto drained = followed.drain();
      EXPECT_TRUE( drained.stateChanged );
      EXPECT_EQ( drained.written + drained.removed, 0u );
      EXPECT_NE( followed.reader.problem().find( problem ), std::string::npos );
      EXPECT_FALSE( followed.drain().stateChanged );
   };
   const std::string stale = bytesOf( path );
   unlink( path.c_str() );
   expectKept( "gone" );
   // Later writes are still followed, there and after the file is back.
   put( writer, 4, 1 );
   EXPECT_EQ( followed.drain().written, 1u );
   remove( writer, 1 );
   EXPECT_FALSE( writer.filesStand() );
   writer.restoreFiles();
   EXPECT_TRUE( writer.filesStand() );
   EXPECT_EQ( followed.drain().removed, 1u );
   EXPECT_EQ( followed.content, contentOf( writer ) );
   EXPECT_TRUE( followed.reader.problem().empty() );
   // Moved away and back.
   rename( path.c_str(), ( path + "-" ).c_str() );
   expectKept( "gone" );
   rename( ( path + "-" ).c_str(), path.c_str() );
   expectKept( "" );
   EXPECT_TRUE( followed.reader.problem().empty() );
   // Another file takes its place, and vanishes.
   unlink( path.c_str() );
   bytesAre( path, "no table" );
   expectKept( "8 bytes" );
   unlink( path.c_str() );
   expectKept( "gone" );
   // An old copy, without lock and bell.
   for ( const char* suffix : { ".lock", ".bell" } )
      unlink( ( path + suffix ).c_str() );
   bytesAre( path, stale );
   writer.restoreFiles();
   EXPECT_TRUE( writerAlive( path ) );
   put( writer, 5, 1 );
   followed.drain();
   EXPECT_EQ( followed.content, contentOf( writer ) );
   EXPECT_EQ( contentOf( TableReader( path, layout ) ), contentOf( writer ) );
   // One of the others alone.
   for ( const char* suffix : { ".lock", ".bell" } ) {
      unlink( ( path + suffix ).c_str() );
      EXPECT_FALSE( writer.filesStand() ) << suffix;
      writer.restoreFiles();
      EXPECT_TRUE( writer.filesStand() ) << suffix;
      EXPECT_FALSE( followed.drain().stateChanged ) << suffix;
   }
   // Retired by its writer or in its absence. A mark without the removal no longer
   // counts once a writer writes there again.
   for ( bool orphaned : { true, false } ) {
      auto next =
         std::make_unique<TableWriter>( directory + "/v", layout, 10, options );
      put( *next, 1, 1 );
      const std::string mine = directory + "/v";
      Followed other( mine, layout );
      if ( orphaned ) {
         link( mine.c_str(), ( mine + "-" ).c_str() );
         next->removeFiles();
         rename( ( mine + "-" ).c_str(), mine.c_str() );
         next = std::make_unique<TableWriter>( mine, layout, 10, options );
         EXPECT_EQ( next->attachReport().survivors, 1u );
         unlink( mine.c_str() );
         EXPECT_EQ( other.drain().removed, 0u );
      } else {
         put( *next, 2, 1 );
         meet( other, 2 );
         next.reset();
         removeTableFiles( mine );
         EXPECT_EQ( other.drain().removed, 2u );
      }
   }
   // Retired after its file.
   unlink( path.c_str() );
   expectKept( "gone" );
   writer.removeFiles();
   const uint32_t known = followed.follower.size();
   EXPECT_EQ( followed.drain().removed, known );
   EXPECT_EQ( followed.reader.state(), readerAbsent );
   EXPECT_EQ( followed.reader.problem(), "" );
}

TEST_F( Follower, KnowsWhetherWhatWasToldStands ) {
   options.firstCapacity = 4;
   TableWriter writer( path, layout, 100, options );
   Followed followed( path, layout );
   const TableFollower& follower = followed.follower;
   Found last;
   auto tell = [&] {
      followed.follower.drain( [&]( const Change& told ) { last = told.found; },
                               UINT32_MAX );
      EXPECT_FALSE( follower.pending() );
      return last;
   };
   put( writer, 1, 1 );
   const Found first = tell();
   EXPECT_TRUE( follower.stands( first ) );
   put( writer, 1, 2 );
   EXPECT_FALSE( follower.stands( first ) );
   const Found second = tell();
   EXPECT_TRUE( follower.stands( second ) );
   remove( writer, 1 );
   for ( const Found& none :
         { second, Found(), Found{ second.position, 0, second.instance } } )
      EXPECT_FALSE( follower.stands( none ) );
   // After 2^28 writes words repeat.
   put( writer, 1, 3 );
   const Found third = tell();
   const std::string bytes = bytesOf( path );
   std::string later = bytes;
   const uint64_t head = writer.sequence() + ( 1ull << 28 );
   std::memcpy( later.data() + geometryOf( 4 ).controlOffset, &head, 8 );
   bytesAre( path, later );
   EXPECT_FALSE( follower.stands( third ) );
   bytesAre( path, bytes );
   EXPECT_TRUE( follower.stands( third ) );
   // Growth is a change by itself.
   for ( uint64_t id : { 2, 3, 4 } ) put( writer, id, 1 );
   tell();
   put( writer, 5, 1 );
   EXPECT_TRUE( follower.pending() );
   EXPECT_FALSE( follower.stands( last ) );
   Found now = tell();
   EXPECT_TRUE( follower.stands( now ) );
   now.instance = third.instance;
   EXPECT_FALSE( follower.stands( now ) );
}

TEST_F( Follower, ComparesEverythingWhenTheJournalIsDamaged ) {
   TableWriter writer( path, layout, 10, options );
   const auto geometry = geometryOf( 10 );
   Followed followed( path, layout );
   for ( Position wrong : { 7u, 0u, ~0u } ) {
      for ( uint64_t id : { 1, 2 } ) put( writer, id, writer.sequence() );
      const uint64_t sequence = writer.sequence();
      const uint64_t entry =
         wrong == ~0u ? 0
                      : Detail::journalEntry( wrong, sequence - ( wrong == 0 ) );
      std::string bytes = bytesOf( path );
      std::memcpy( bytes.data() + geometry.journalOffset +
                      sequence % geometry.journalEntries * 8,
                   &entry, 8 );
      bytesAre( path, bytes );
      EXPECT_TRUE( followed.drain().lapped );
      EXPECT_EQ( followed.content, contentOf( writer ) );
   }
}

TEST_F( Follower, TakesEverythingForChangedBeyondTheGenerations ) {
   TableWriter writer( path, layout, 4, options );
   put( writer, 1, 1 );
   put( writer, 2, 1 );
   Followed followed( path, layout );
   // Only the head, as after 2^28 writes, when words repeat.
   uint64_t head = writer.sequence() + ( 1ull << 28 );
   std::string bytes = bytesOf( path );
   std::memcpy( bytes.data() + geometryOf( 4 ).controlOffset, &head, 8 );
   bytesAre( path, bytes );
   EXPECT_EQ( followed.drain().written, 2u );
}

}
}
