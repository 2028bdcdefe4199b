// Writers and readers are killed and stopped anywhere, beside readers that check
// all.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>
#include <iostream>
#include <random>

#include "Support.h"

namespace Brane::Test {
namespace {

// These keys always stand; the others come and go. A key's generations only grow,
// over its removals and its writers' deaths.
constexpr uint64_t standing = 20;
constexpr uint64_t keys = 60;

// Looks every key up and compares the answer with all earlier ones.
class Watch : public Followed {
 public:
   using Followed::Followed;

   // Null while everything is right. `still`: no writer is running.
   const char* complaint( bool still ) {
      uint64_t retried = reader.counters().retried;
      for ( uint64_t id = 1; id <= keys; ++id ) {
         if ( const char* text = look( id, still ) ) return text;
      }
      bool waited = still && reader.counters().retried != retried;
      return waited ? "tried again though nobody writes" : nullptr;
   }
   const char* complaint() {
      drain();
      return complaint( false );
   }
   // The followed content, with no writer running.
   const Content& followed() {
      while ( drain().again ) continue;
      return content;
   }

 private:
   const char* look( uint64_t id, bool still ) {
      Record r;
      Key key{ id, 0 };
      Lookup result = reader.lookup( &key, &r );
      if ( result == lookupDamaged ) return "damaged";
      if ( result == lookupBusy )
         return still ? "busy though nobody writes" : nullptr;
      if ( result == lookupAbsent ) return id <= standing ? "missed" : nullptr;
      if ( !r.whole() || r.key.id != id ) return "torn or foreign";
      if ( r.generation < latest_[id] ) return "went back";
      latest_[id] = r.generation;
      return nullptr;
   }

   std::map<uint64_t, uint64_t> latest_;
};

class Survival : public TableTest {
 protected:
   Survival() {
      std::cout << "PIMSM_SEED=" << seed << std::endl;
      void* shared = mmap( nullptr, sizeof( *over ), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
      over = new ( shared ) std::atomic<bool>( false );
      options.journalEntries = 64;
      grows = random() % 2;
      if ( !grows ) options.firstCapacity = keys;
      TableWriter writer( path, layout, keys, options );
      for ( uint64_t id = 1; id <= standing; ++id ) put( writer, id, 0 );
   }
   ~Survival() override {
      *over = true;
      munmap( over, sizeof( *over ) );
   }

   // Runs until `over`; a complaint ends it with a status of its own.
   pid_t startReader() {
      return start( [this] {
         Watch watch( path, layout );
         while ( !*over ) {
            const char* text = watch.complaint();
            if ( text == nullptr ) continue;
            fprintf( stderr, "reader: %s\n", text );
            _exit( 2 );
         }
         if ( watch.followed() != contentOf( watch.reader ) ) _exit( 3 );
         if ( HasFailure() ) _exit( 4 );
      } );
   }
   // Runs until killed.
   pid_t startWriter( uint64_t life ) {
      uint64_t mine = random();
      return start( [this, life, mine] {
         random.seed( mine );
         TableWriter writer( path, layout, keys, options );
         const AttachReport& report = writer.attachReport();
         if ( report.dropped || report.resequenced || !report.texts.empty() )
            _exit( 2 );
         for ( uint64_t generation = life << 32;; ++generation ) {
            uint64_t id = random() % keys + 1;
            if ( random() % 1000 == 0 ) {
               fill( writer, generation );
            } else if ( id > standing && random() % 2 ) {
               remove( writer, id );
            } else {
               put( writer, id, generation );
            }
         }
      } );
   }
   // Readers use up no slot, wherever they are stopped or killed.
   static void fill( TableWriter& writer, uint64_t generation ) {
      for ( uint64_t id = 1; id <= keys; ++id ) put( writer, id, generation );
      try {
         put( writer, keys + 1, generation );
         _exit( 3 );
      } catch ( const TableFullError& ) {
      }
   }
   static void stopped( pid_t pid ) {
      int status = 0;
      kill( pid, SIGSTOP );
      waitpid( pid, &status, WUNTRACED );
      ASSERT_TRUE( WIFSTOPPED( status ) ) << "ended by itself";
   }
   static void killed( pid_t pid ) {
      kill( pid, SIGKILL );
      EXPECT_TRUE( WIFSIGNALED( ended( pid ) ) ) << "ended by itself";
   }

   const unsigned seed = std::getenv( "PIMSM_SEED" )
                            ? unsigned( std::atoi( std::getenv( "PIMSM_SEED" ) ) )
                            : std::random_device()();
   std::mt19937_64 random{ seed };
   std::atomic<bool>* over;
   bool grows = false;
};

TEST_F( Survival, OfReadersAndWritersThatAreStoppedAndKilled ) {
   const uint64_t lives = std::getenv( "PIMSM_LONG" ) ? 2000 : 60;
   Watch watch( path, layout );
   pid_t readers[3];
   for ( pid_t& reader : readers ) reader = startReader();
   auto expectSound = [&]( bool still ) {
      EXPECT_STREQ( watch.complaint( still ), nullptr );
   };
   for ( uint64_t life = 1; life <= lives && !HasFailure(); ++life ) {
      SCOPED_TRACE( "life " + std::to_string( life ) );
      pid_t writer = startWriter( life );
      pid_t& reader = readers[random() % 3];
      const bool waits = random() % 3 == 0;
      if ( waits ) stopped( reader );
      // At any moment of its start, or of its work.
      uint64_t until = watch.reader.sequence() + random() % 300;
      bool early = random() % 4 == 0;
      for ( uint64_t looks = random() % 100; early && looks > 0; --looks )
         expectSound( false );
      while ( !early && watch.reader.sequence() < until &&
              waitpid( writer, nullptr, WNOHANG ) == 0 ) {
         expectSound( false );
         if ( grows ) watch.drain();
      }
      for ( uint64_t i = random() % 4; !early && i > 0 && !HasFailure(); --i ) {
         stopped( writer );
         expectSound( true );
         kill( writer, SIGCONT );
         for ( uint64_t looks = random() % 10; looks > 0; --looks )
            expectSound( false );
      }
      killed( writer );
      expectSound( true );
      if ( waits ) kill( reader, SIGCONT );
      if ( random() % 5 != 0 ) continue;
      killed( reader );
      reader = startReader();
   }
   *over = true;
   for ( pid_t reader : readers ) EXPECT_EQ( ended( reader ), 0 );
   EXPECT_TRUE( grows || !watch.reader.poll() ) << "another instance";
   TableWriter writer( path, layout, keys, options );
   EXPECT_EQ( writer.verify().damaged, 0u );
   EXPECT_EQ( watch.followed(), contentOf( writer ) );
}

}
}
