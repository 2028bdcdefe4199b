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
   // Runs `body` in a child that ends without returning here.
   template <class Body>
   static pid_t start( Body body ) {
      pid_t pid = fork();
      if ( pid ) return pid;
      try {
         body();
      } catch ( const std::exception& e ) {
         fprintf( stderr, "child: %s\n", e.what() );
         _exit( 1 );
      }
      _exit( 0 );
   }
   static int ended( pid_t pid ) {
      int status = 0;
      waitpid( pid, &status, 0 );
      return status;
   }
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
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   options.journalEntries = 256;
   {
      TableWriter writer( path, layout, 40, options );
      for ( uint64_t id = 1; id <= standing; ++id ) put( writer, id, 0 );
   }
   pid_t child = start( [&] {
      std::mt19937_64 random( seed );
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
   std::vector<uint64_t> latest( 41 );
   auto check = [&]( const Record& r, uint64_t id ) {
      ASSERT_TRUE( r.whole() );
      ASSERT_EQ( r.key.id, id );
      ASSERT_GE( r.generation, latest[id] );
      latest[id] = r.generation;
   };
   uint64_t finds = 0, busy = 0;
   int status = 0;
   bool running = true;
   while ( running && !HasFatalFailure() ) {
      running = waitpid( child, &status, WNOHANG ) == 0;
      for ( uint64_t id = 1; id <= 40 && !HasFatalFailure(); ++id ) {
         Record r;
         Key key{ id, 0 };
         Lookup result = reader.lookup( &key, &r );
         ASSERT_NE( result, lookupDamaged ) << reader.problem();
         ASSERT_FALSE( id <= standing && result == lookupAbsent )
            << "missed " << id;
         finds += result == lookupFound;
         busy += result == lookupBusy;
         if ( result == lookupFound ) check( r, id );
      }
      followed.drain( follower );
      ASSERT_EQ( reader.counters().damaged, 0u ) << reader.problem();
   }
   if ( running ) kill( child, SIGKILL );
   if ( running ) ended( child );
   EXPECT_TRUE( WIFEXITED( status ) && WEXITSTATUS( status ) == 0 );
   EXPECT_GT( finds, standing );
   while ( followed.drain( follower ).again ) continue;
   TableReader fresh( path, layout );
   EXPECT_EQ( followed.content, contentOf( fresh ) );
   RecordProperty( "finds", std::to_string( finds ) );
   RecordProperty( "busy", std::to_string( busy ) );
}

// Stopped anywhere, killed anywhere, started again: a reader's look-ups end at
// once, with whole records that never go back.
TEST_F( Processes, ReadersOutliveStoppedAndKilledWriters ) {
   constexpr uint64_t keys = 20;
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   {
      TableWriter writer( path, layout, keys, options );
      for ( uint64_t id = 1; id <= keys; ++id ) put( writer, id, 0 );
   }
   TableReader reader( path, layout );
   std::vector<uint64_t> latest( keys + 1 );
   auto readAll = [&]( bool still ) {
      for ( uint64_t id = 1; id <= keys; ++id ) {
         Record r;
         Key key{ id, 0 };
         Lookup result = reader.lookup( &key, &r );
         ASSERT_TRUE( result == lookupFound || ( result == lookupBusy && !still ) )
            << "key " << id << ": " << result << ' ' << reader.problem();
         if ( result == lookupBusy ) continue;
         ASSERT_TRUE( r.whole() );
         ASSERT_GE( r.generation, latest[id] );
         latest[id] = r.generation;
      }
   };
   for ( int life = 0; life < 60 && !HasFatalFailure(); ++life ) {
      uint64_t first = 0;
      for ( uint64_t generation : latest ) first = std::max( first, generation );
      pid_t child = start( [&] {
         TableWriter writer( path, layout, keys, options );
         if ( writer.size() != keys || writer.attachReport().dropped ) _exit( 2 );
         for ( uint64_t id = 1; id <= keys; ++id ) {
            Key key{ id, 0 };
            auto* r = static_cast<const Record*>( writer.find( &key ) );
            first = std::max( first, r->generation );
         }
         for ( uint64_t step = first + 1;; ++step )
            put( writer, step % keys + 1, step );
      } );
      uint64_t sequence = reader.sequence();
      while ( reader.sequence() < sequence + 100 &&
              waitpid( child, nullptr, WNOHANG ) == 0 ) {
         readAll( false );
      }
      for ( int stop = 0; stop < 5 && !HasFatalFailure(); ++stop ) {
         for ( uint64_t i = random() % 20; i > 0; --i ) readAll( false );
         kill( child, SIGSTOP );
         int status = 0;
         ASSERT_EQ( waitpid( child, &status, WUNTRACED ), child );
         ASSERT_TRUE( WIFSTOPPED( status ) )
            << "the writer ended by itself: " << status;
         readAll( true );
         kill( child, SIGCONT );
      }
      kill( child, SIGKILL );
      ended( child );
      readAll( true );
   }
   EXPECT_FALSE( reader.poll() );
   TableWriter writer( path, layout, keys, options );
   EXPECT_EQ( writer.verify().damaged, 0u );
}

TEST_F( Processes, ReadersCannotWriteTheTable ) {
   TableWriter writer( path, layout, 10, options );
   put( writer, 1, 1 );
   pid_t child = start( [&] {
      TableReader reader( path, layout );
      // The record that a visitor gets is a copy: scribbling on it harms nobody.
      reader.visit( []( Position, const void* record ) {
         std::memset( const_cast<void*>( record ), 0xff, sizeof( Record ) );
         return true;
      } );
   } );
   EXPECT_EQ( ended( child ), 0 );
   TableReader reader( path, layout );
   EXPECT_EQ( found( reader, 1 ), Record::of( 1, 1 ) );
}

}
}
