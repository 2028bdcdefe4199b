// Writer and readers in processes of their own.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <random>

#include "Support.h"

namespace Brane::Test {
namespace {

class Processes : public TableTest {
 protected:
   // A look-up of a key that may not be damaged, nor older than before.
   Lookup look( const TableReader& reader, uint64_t id ) {
      Record r;
      Key key{ id, 0 };
      Lookup result = reader.lookup( &key, &r );
      EXPECT_NE( result, lookupDamaged ) << reader.problem();
      if ( result != lookupFound ) return result;
      EXPECT_TRUE( r.whole() );
      EXPECT_EQ( r.key.id, id );
      EXPECT_GE( r.generation, latest[id] );
      latest[id] = r.generation;
      return result;
   }

   std::map<uint64_t, uint64_t> latest;
   uint32_t seed = std::random_device()();
   std::mt19937_64 random{ seed };
};

TEST_F( Processes, SecondWriterIsRefusedUntilTheFirstIsKilled ) {
   int ready[2];
   ASSERT_EQ( pipe( ready ), 0 );
   pid_t first = start( [&] {
      TableWriter writer( path, layout, 10, options );
      put( writer, 1, 1 );
      if ( write( ready[1], "x", 1 ) == 1 ) pause();
   } );
   char byte;
   ASSERT_EQ( read( ready[0], &byte, 1 ), 1 );
   TableReader reader( path, layout );
   EXPECT_TRUE( reader.writerAlive() );
   try {
      TableWriter second( path, layout, 10, options );
      ADD_FAILURE() << "admitted";
   } catch ( const SecondWriterError& e ) {
      EXPECT_EQ( e.pid(), first );
      EXPECT_NE( std::string( e.what() ).find( std::to_string( first ) ),
                 std::string::npos );
   }
   EXPECT_THROW( removeTableFiles( path ), SecondWriterError );
   kill( first, SIGKILL );
   ended( first );
   EXPECT_FALSE( reader.writerAlive() );
   TableWriter second( path, layout, 10, options );
   EXPECT_EQ( second.attachReport().survivors, 1u );
   EXPECT_THROW( TableWriter( path, layout, 10, options ), SecondWriterError );
   EXPECT_TRUE( reader.writerAlive() );
   close( ready[0] );
   close( ready[1] );
}

// A child writes as fast as it can; keys 1 to 8 always stand, the others come and
// go. Each record is whole, of the key asked for, and never older than before.
TEST_F( Processes, ReadersNeverSeeHalfARecordNorMissAStandingKey ) {
   constexpr uint64_t standing = 8, changes = 400000;
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   options.journalEntries = 256;
   {
      TableWriter writer( path, layout, 40, options );
      for ( uint64_t id = 1; id <= standing; ++id ) put( writer, id, 0 );
   }
   pid_t child = start( [&] {
      TableWriter writer( path, layout, 40, options );
      for ( uint64_t step = 1; step <= changes; ++step ) {
         uint64_t id = random() % 40 + 1;
         if ( id > standing && random() % 2 ) {
            remove( writer, id );
         } else {
            put( writer, id, step );
         }
      }
   } );
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed{ contentOf( reader ) };
   uint64_t finds = 0;
   int status = 0;
   bool running = true;
   while ( running && !HasFailure() ) {
      running = waitpid( child, &status, WNOHANG ) == 0;
      for ( uint64_t id = 1; id <= 40 && !HasFailure(); ++id ) {
         Lookup result = look( reader, id );
         EXPECT_FALSE( id <= standing && result == lookupAbsent )
            << "missed " << id;
         finds += result == lookupFound;
      }
      followed.drain( follower );
      EXPECT_EQ( reader.counters().damaged, 0u ) << reader.problem();
   }
   if ( running ) kill( child, SIGKILL );
   if ( running ) ended( child );
   EXPECT_TRUE( WIFEXITED( status ) && WEXITSTATUS( status ) == 0 );
   EXPECT_GT( finds, standing );
   while ( followed.drain( follower ).again ) continue;
   TableReader fresh( path, layout );
   EXPECT_EQ( followed.content, contentOf( fresh ) );
}

}
}
