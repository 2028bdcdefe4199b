#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <limits>

#include "Support.h"
#include "platform/shm/DoorbellHub.h"

namespace Brane::Test {
namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr int deadline = 30000;  // ms

double seconds() {
   std::chrono::duration<double> time =
      std::chrono::steady_clock::now().time_since_epoch();
   return time.count();
}

class Doorbell : public TableTest {
 protected:
   bool readable( const DoorbellHub& hub ) const {
      pollfd poll{ hub.fd(), POLLIN, 0 };
      return ::poll( &poll, 1, 0 ) == 1;
   }
   // Rings that the hub passes on from now on; the time goes on by 1 s.
   int rings( DoorbellHub& hub ) {
      int before = calls;
      now += 1;
      hub.dispatch( now );
      return calls - before;
   }
   DoorbellHub::Callback count() {
      return [this] { ++calls; };
   }

   double now = 100;
   int calls = 0;
};

TEST_F( Doorbell, RingsForEachTableThatChangedOnceABatch ) {
   TableWriter writer( path, layout, 10, options );
   TableWriter other( directory + "/u", layout, 10, options );
   DoorbellHub hub;
   int others = 0;
   hub.add( path, count() );
   hub.add( directory + "/u", [&] { ++others; } );
   EXPECT_EQ( rings( hub ), 1 );  // the first look
   EXPECT_EQ( others, 1 );
   EXPECT_FALSE( hub.fallback() );
   put( writer, 1, 1 );
   put( writer, 2, 1 );
   EXPECT_FALSE( readable( hub ) );
   writer.ring();
   writer.ring();
   EXPECT_TRUE( readable( hub ) );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( others, 1 );
   EXPECT_EQ( rings( hub ), 0 );
   EXPECT_EQ( hub.due(), never );
   // At most once a millisecond, and no ring is lost.
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_EQ( rings( hub ), 1 );
   calls = 0;
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_DOUBLE_EQ( hub.dispatch( now + 0.0004 ), now + 0.001 );
   EXPECT_EQ( calls, 0 );
   EXPECT_EQ( hub.dispatch( now + 0.001 ), never );
   EXPECT_EQ( calls, 1 );
}

TEST_F( Doorbell, RingsWhenATableAppearsIsReplacedAndGoes ) {
   std::string deep = directory + "/a/b/t";
   DoorbellHub hub;
   hub.add( deep, count() );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_FALSE( hub.fallback() );
   std::filesystem::create_directories( directory + "/a/b" );
   EXPECT_EQ( rings( hub ), 1 );
   auto writer = std::make_unique<TableWriter>( deep, layout, 10, options );
   EXPECT_EQ( rings( hub ), 1 );
   put( *writer, 1, 1 );
   writer->ring();
   EXPECT_EQ( rings( hub ), 1 );
   writer.reset();
   EXPECT_GE( rings( hub ), 1 );
   writer = std::make_unique<TableWriter>( deep, layout, 20, options );
   EXPECT_GE( rings( hub ), 1 );
   writer->removeFiles();
   EXPECT_GE( rings( hub ), 1 );
   writer.reset();
   rings( hub );
   // A new table under the old name, new bell included.
   writer = std::make_unique<TableWriter>( deep, layout, 20, options );
   EXPECT_GE( rings( hub ), 1 );
   put( *writer, 1, 1 );
   writer->ring();
   EXPECT_EQ( rings( hub ), 1 );
}

TEST_F( Doorbell, TellsOfAWriterThatWasKilledBeforeItRang ) {
   int ready[2], go[2];
   ASSERT_EQ( pipe( ready ), 0 );
   ASSERT_EQ( pipe( go ), 0 );
   pid_t child = start( [&] {
      TableWriter writer( path, layout, 10, options );
      if ( write( ready[1], "x", 1 ) != 1 || read( go[0], &calls, 4 ) != 4 ) return;
      put( writer, 1, 1 );
      kill( getpid(), SIGKILL );
   } );
   char byte;
   ASSERT_EQ( read( ready[0], &byte, 1 ), 1 );
   DoorbellHub hub;
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   hub.add( path, [&] {
      ++calls;
      followed.drain( follower );
   } );
   EXPECT_EQ( rings( hub ), 1 );
   ASSERT_EQ( write( go[1], "four", 4 ), 4 );
   EXPECT_TRUE( WIFSIGNALED( ended( child ) ) );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( followed.content[1], Record::of( 1, 1 ) );
   EXPECT_FALSE( reader.writerAlive() );
   // Once more a little later, since the bell may ring before the lock is free.
   EXPECT_LT( hub.due(), now + 1 );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( hub.due(), never );
   for ( int fd : { ready[0], ready[1], go[0], go[1] } ) close( fd );
}

TEST_F( Doorbell, FallsBackToTimeWithoutInotify ) {
   TableWriter writer( path, layout, 10, options );
   DoorbellHub hub( false );
   EXPECT_EQ( hub.fd(), -1 );
   EXPECT_EQ( hub.due(), never );
   DoorbellHub::Id id = hub.add( path, count() );
   EXPECT_TRUE( hub.fallback() );
   EXPECT_EQ( hub.dispatch( now ), now + DoorbellHub::fallbackInterval );
   EXPECT_EQ( calls, 1 );
   hub.dispatch( now + 0.01 );
   EXPECT_EQ( calls, 1 );
   hub.dispatch( now + DoorbellHub::fallbackInterval );
   EXPECT_EQ( calls, 2 );
   hub.remove( id );
   EXPECT_EQ( hub.due(), never );
}

// As a process of another user in the group, where this one may become such.
template <class Body>
void asReader( Body body ) {
   const bool privileged = geteuid() == 0;
   ASSERT_EQ( privileged ? seteuid( 65534 ) : 0, 0 );
   body();
   ASSERT_EQ( privileged ? seteuid( 0 ) : 0, 0 );
}

// A bell that may not be read yet, as between its making and its mode.
TEST_F( Doorbell, LooksByTimeUntilARefusedBellCanBeWatched ) {
   TableWriter writer( path, layout, 10, options );
   ASSERT_EQ( chmod( directory.c_str(), 0755 ), 0 );
   ASSERT_EQ( chmod( ( path + ".bell" ).c_str(), 0 ), 0 );
   DoorbellHub hub;
   DoorbellHub::Id id = 0;
   asReader( [&] { id = hub.add( path, count() ); } );
   EXPECT_TRUE( hub.fallback() );
   ASSERT_EQ( chmod( ( path + ".bell" ).c_str(), 0640 ), 0 );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_FALSE( hub.fallback() );
   EXPECT_EQ( hub.due(), never );
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_TRUE( readable( hub ) );
   EXPECT_EQ( rings( hub ), 1 );
   hub.remove( id );
}

// Open for reading and locked so; -1 where the file may not be read.
int lockedForReading( const std::string& file ) {
   int fd = open( file.c_str(), O_RDONLY | O_CLOEXEC );
   struct flock lock {};
   lock.l_type = F_RDLCK;
   EXPECT_TRUE( fd < 0 || fcntl( fd, F_OFD_SETLK, &lock ) == 0 );
   return fd;
}

// A process of the group may lock what it may read: it gets a bell for itself, and
// neither the writer nor other readers lose theirs.
TEST_F( Doorbell, AReadersLocksAreInNobodysWay ) {
   std::make_unique<TableWriter>( path, layout, 10, options ).reset();
   DoorbellHub hub;
   hub.add( path, count() );
   EXPECT_EQ( rings( hub ), 1 );
   ASSERT_EQ( chmod( directory.c_str(), 0755 ), 0 );
   int bell = -1;
   const bool other = geteuid() == 0;
   asReader( [&] {
      bell = lockedForReading( path + ".bell" );
      EXPECT_FALSE( writerAlive( path ) );
      EXPECT_TRUE( !other || lockedForReading( path + ".lock" ) == -1 );
   } );
   auto writer = std::make_unique<TableWriter>( path, layout, 10, options );
   EXPECT_GE( rings( hub ), 1 );
   asReader( [&] { EXPECT_TRUE( writerAlive( path ) ); } );
   EXPECT_FALSE( hub.fallback() );
   put( *writer, 1, 1 );
   writer->ring();
   EXPECT_EQ( rings( hub ), 1 );
   writer.reset();
   EXPECT_FALSE( writerAlive( path ) );
   close( bell );
   // The writer's own user can; that is not called a second writer.
   int lock = lockedForReading( path + ".lock" );
   EXPECT_THROW( TableWriter( path, layout, 10, options ), CreateError );
   close( lock );
   EXPECT_NO_THROW( TableWriter( path, layout, 10, options ) );
}

TEST_F( Doorbell, FindsATableAgainWhoseMoveTheQueueLost ) {
   std::string place = directory + "/a";
   std::filesystem::create_directory( place );
   TableWriter former( place + "/t", layout, 10, options );
   DoorbellHub hub;
   hub.add( place + "/t", count() );
   EXPECT_EQ( rings( hub ), 1 );
   unsigned most = 0;
   std::ifstream( "/proc/sys/fs/inotify/max_queued_events" ) >> most;
   ASSERT_GT( most, 0u );
   if ( most > 200000 ) GTEST_SKIP() << "a queue of " << most << " events";
   for ( unsigned i = 0; i <= most / 2; ++i ) {
      std::ofstream( place + "/x" ).close();
      std::filesystem::remove( place + "/x" );
   }
   std::filesystem::rename( place, directory + "/b" );
   std::filesystem::create_directory( place );
   TableWriter writer( place + "/t", layout, 10, options );
   EXPECT_EQ( rings( hub ), 1 );
   rings( hub );
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_EQ( rings( hub ), 1 );
   // The former files no longer ring.
   put( former, 1, 1 );
   former.ring();
   EXPECT_EQ( rings( hub ), 0 );
}

TEST_F( Doorbell, CallbacksMayRemoveThemselvesAndOthers ) {
   DoorbellHub hub;
   DoorbellHub::Id first = 0, second = 0;
   first = hub.add( path, [&] {
      ++calls;
      hub.remove( second );
      hub.remove( first );
   } );
   second = hub.add( directory + "/u", count() );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( hub.due(), never );
}

// One change, then silence until it was heard: a lost ring would be waited for in
// vain. The answer is given from within the call, so that the next ring comes at any
// moment of the hub's work.
TEST_F( Doorbell, LosesNoWakeUpInManyRounds ) {
   const uint64_t rounds = std::getenv( "PIMSM_LONG" ) ? 20000 : 1000;
   int answers[2];
   ASSERT_EQ( pipe( answers ), 0 );
   TableWriter writer( path, layout, 10, options );
   pid_t child = start( [&] {
      TableReader reader( path, layout );
      TableFollower follower( reader );
      DoorbellHub hub;
      uint64_t heard = 0;
      hub.add( path, [&] {
         follower.drain( [&]( const Change& change ) {
            auto* r = static_cast<const Record*>( change.record );
            heard = r->generation;
            if ( write( answers[1], &heard, 8 ) != 8 ) _exit( 2 );
         } );
      } );
      if ( write( answers[1], &heard, 8 ) != 8 ) _exit( 2 );
      for ( ;; ) {
         double due = hub.dispatch( seconds() );
         if ( heard == rounds ) return;
         double wait = std::max( 0.0, due - seconds() );
         int limit = due == never ? deadline : int( wait * 1000 ) + 1;
         pollfd item{ hub.fd(), POLLIN, 0 };
         if ( ::poll( &item, 1, limit ) == 0 && due == never ) _exit( 3 );
      }
   } );
   uint64_t heard = 0;
   for ( uint64_t round = 0; round <= rounds && !HasFailure(); ++round ) {
      if ( round > 0 ) {
         put( writer, 1, round );
         writer.ring();
      }
      pollfd item{ answers[0], POLLIN, 0 };
      ASSERT_EQ( ::poll( &item, 1, 2 * deadline ), 1 ) << "round " << round;
      ASSERT_EQ( read( answers[0], &heard, 8 ), 8 );
      EXPECT_EQ( heard, round );
   }
   EXPECT_EQ( ended( child ), 0 );
   close( answers[0] );
   close( answers[1] );
}

// This process may open no more files, as a user may have no more instances.
TEST_F( Doorbell, FallsBackWhenTheSystemHasNoInstanceLeft ) {
#ifdef __SANITIZE_ADDRESS__
   GTEST_SKIP() << "the sanitizers open pipes of their own to look at memory";
#endif
   TableWriter writer( path, layout, 10, options );
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed;
   rlimit former;
   ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &former ), 0 );
   rlimit limit = former;
   limit.rlim_cur = 40;
   ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &limit ), 0 );
   std::vector<int> taken;
   for ( int fd; ( fd = inotify_init1( IN_CLOEXEC ) ) >= 0; ) taken.push_back( fd );
   EXPECT_EQ( errno, EMFILE );
   {
      DoorbellHub hub;
      hub.add( path, [&] { followed.drain( follower ); } );
      EXPECT_EQ( hub.fd(), -1 );
      for ( uint64_t generation = 1; generation <= 20; ++generation ) {
         put( writer, 1, generation );
         writer.ring();
         now = hub.dispatch( now );
         hub.dispatch( now );
         EXPECT_EQ( followed.content[1], Record::of( 1, generation ) );
      }
   }
   for ( int fd : taken ) close( fd );
   setrlimit( RLIMIT_NOFILE, &former );
   EXPECT_FALSE( taken.empty() );
   DoorbellHub hub;
   hub.add( path, count() );
   EXPECT_FALSE( hub.fallback() );
}

}
}
