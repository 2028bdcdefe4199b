#include "Support.h"
#include "platform/shm/TableWalk.h"

namespace Brane::Test {
namespace {

class Follower : public TableTest {};

TEST_F( Follower, HearsEachLaterChangeOnce ) {
   Followed followed( path, layout );
   EXPECT_FALSE( followed.drain().stateChanged );
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
   // Who finds a key before it was told hears of its end, too.
   put( writer, 7, 1 );
   const Key key{ 7, 0 };
   Record record;
   Position at = noPosition;
   EXPECT_EQ( followed.reader.lookup( &key, &record, &at ), lookupFound );
   followed.follower.met( at, &key );
   remove( writer, 7 );
   EXPECT_EQ( followed.drain().removed, 1u );
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
         next.reset();
         removeTableFiles( mine );
         EXPECT_EQ( other.drain().removed, 1u );
      }
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
