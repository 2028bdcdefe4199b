#include <random>

#include "Support.h"

namespace Brane::Test {
namespace {

class Follower : public TableTest {};

TEST_F( Follower, HearsEachLaterChangeOnce ) {
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   EXPECT_FALSE( followed.drain( follower ).stateChanged );
   TableWriter writer( path, layout, 10, options );
   put( writer, 1, 1 );
   // A table that appears was empty until then.
   EXPECT_TRUE( followed.drain( follower ).stateChanged );
   EXPECT_EQ( followed.changes, 1u );
   // What stands when a follower is made is not told.
   TableReader lateReader( path, layout );
   TableFollower late( lateReader );
   Followed lateFollowed;
   EXPECT_FALSE( lateFollowed.drain( late ).stateChanged );
   EXPECT_EQ( lateFollowed.changes, 0u );
   put( writer, 2, 1 );
   put( writer, 2, 2 );
   put( writer, 2, 2 );
   EXPECT_TRUE( follower.pending() );
   EXPECT_EQ( followed.drain( follower ).written, 1u );
   EXPECT_EQ( followed.content.at( 2 ), Record::of( 2, 2 ) );
   EXPECT_FALSE( follower.pending() );
   // An equal value is a change.
   put( writer, 2, 2 );
   EXPECT_EQ( followed.drain( follower ).written, 1u );
   remove( writer, 1 );
   EXPECT_EQ( followed.drain( follower ).removed, 1u );
   // Came and went in between: nobody knew it.
   put( writer, 5, 1 );
   remove( writer, 5 );
   auto drained = followed.drain( follower );
   EXPECT_EQ( drained.written + drained.removed, 0u );
   remove( writer, 2 );
   put( writer, 2, 9 );
   EXPECT_EQ( lateFollowed.drain( late ).written, 1u );
   drained = followed.drain( follower );
   EXPECT_EQ( drained.written, 1u );
   EXPECT_EQ( drained.removed, 0u );
}

TEST_F( Follower, EqualsTheTableHoweverSeldomItDrains ) {
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   options.journalEntries = 64;
   TableWriter writer( path, layout, 200, options );
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   // Keys of few lines: positions change hands.
   std::vector<uint64_t> ids = neighbours( 200, 60, 3 );
   for ( uint64_t id = 1000000; ids.size() < 240; ++id ) ids.push_back( id );
   bool lapped = false, kept = false;
   for ( uint64_t round = 1; round <= 400; ++round ) {
      uint64_t steps = random() % ( round % 4 ? 40 : 600 );
      for ( uint64_t step = 0; step < steps; ++step ) {
         uint64_t id = ids[random() % ids.size()];
         if ( random() % 2 ) {
            remove( writer, id );
         } else if ( writer.size() < writer.capacity() ) {
            put( writer, id, round * 1000 + step );
         }
      }
      auto drained = followed.drain( follower );
      lapped = lapped || drained.lapped;
      kept = kept || !drained.lapped;
      ASSERT_EQ( followed.content, contentOf( writer ) ) << "round " << round;
      ASSERT_EQ( follower.size(), writer.size() );
   }
   EXPECT_TRUE( lapped && kept );
}

// Changes go on between the parts, by journal and by comparison.
TEST_F( Follower, TellsABurstInParts ) {
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   options.journalEntries = 256;
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   TableWriter writer( path, layout, 1000, options );
   bool lapped = false, byJournal = false;
   for ( uint64_t round = 1; round <= 60; ++round ) {
      uint64_t burst = round % 3 ? 200 : 2000;
      uint32_t limit = 1 + random() % 50;
      TableFollower::Drained drained;
      for ( uint64_t part = 0; part == 0 || drained.more; ++part ) {
         ASSERT_LT( part, 4000u );
         for ( uint64_t step = 0; step < ( part ? burst % 7 : burst ); ++step ) {
            uint64_t id = 1 + random() % 900;
            if ( random() % 4 ) {
               put( writer, id, ( round * 4000 + part ) * 4000 + step );
            } else {
               remove( writer, id );
            }
         }
         if ( part > 20 ) burst = 0;  // or it might never end
         drained = followed.drain( follower, limit );
         EXPECT_LE( drained.written + drained.removed, 2 * limit + 1 );
         lapped = lapped || ( drained.lapped && drained.more );
         byJournal = byJournal || ( !drained.lapped && drained.more );
         EXPECT_EQ( follower.pending(), drained.more );
      }
      ASSERT_EQ( followed.content, contentOf( writer ) ) << "round " << round;
   }
   EXPECT_TRUE( lapped && byJournal );
   // Each of a burst's keys once, whichever way it is found.
   for ( uint64_t id = 1; id <= 900; ++id ) put( writer, id, 1 );
   followed.changes = 0;
   while ( followed.drain( follower, 100 ).more ) {
   }
   EXPECT_EQ( followed.changes, 900u );
}

TEST_F( Follower, TellsWhatDiffersInANewInstance ) {
   auto writer = std::make_unique<TableWriter>( path, layout, 10, options );
   for ( uint64_t id = 1; id <= 6; ++id ) put( *writer, id, 1 );
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed{ contentOf( reader ) };
   // Not yet told when the instance changes.
   put( *writer, 1, 2 );
   remove( *writer, 2 );
   writer.reset();
   writer = std::make_unique<TableWriter>( path, layout, 50, options );
   put( *writer, 3, 3 );
   remove( *writer, 4 );
   put( *writer, 7, 1 );
   auto drained = followed.drain( follower );
   EXPECT_TRUE( drained.stateChanged );
   EXPECT_EQ( drained.written, 3u );  // 1, 3 and 7
   EXPECT_EQ( drained.removed, 2u );
   EXPECT_EQ( followed.content, contentOf( *writer ) );
   // Gone, and back: both are told.
   writer->removeFiles();
   writer.reset();
   drained = followed.drain( follower );
   EXPECT_EQ( drained.removed, 5u );
   EXPECT_EQ( reader.state(), readerAbsent );
   writer = std::make_unique<TableWriter>( path, layout, 10, options );
   put( *writer, 1, 9 );
   followed.drain( follower );
   EXPECT_EQ( followed.content, contentOf( *writer ) );
}

TEST_F( Follower, HoldsWhatItKnowsWhileTheTableCannotBeRead ) {
   {
      TableWriter writer( path, layout, 10, options );
      put( writer, 1, 1 );
      put( writer, 2, 1 );
   }
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed{ contentOf( reader ) };
   Layout other = layout;
   other.fields[4].name = "sum";
   { TableWriter writer( path, other, 10, options ); }
   auto drained = followed.drain( follower );
   EXPECT_TRUE( drained.stateChanged );
   EXPECT_EQ( reader.state(), readerMismatch );
   EXPECT_EQ( drained.removed, 0u );
   TableWriter writer( path, layout, 10, options );
   remove( writer, 2 );
   put( writer, 1, 5 );
   followed.drain( follower );
   EXPECT_EQ( followed.content, contentOf( writer ) );
}

TEST_F( Follower, TakesEverythingForChangedBeyondTheGenerations ) {
   TableWriter writer( path, layout, 4, options );
   put( writer, 1, 1 );
   put( writer, 2, 1 );
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   // The head alone, as 2^28 writes would leave it with words that repeat.
   uint64_t head = writer.sequence() + ( 1ull << 28 );
   std::string bytes = bytesOf( path );
   std::memcpy( bytes.data() + Detail::controlOffset, &head, 8 );
   bytesAre( path, bytes );
   EXPECT_EQ( followed.drain( follower ).written, 2u );
}

}
}
