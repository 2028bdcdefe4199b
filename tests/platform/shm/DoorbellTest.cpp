#include "platform/shm/DoorbellHub.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <chrono>
#include <functional>
#include <limits>
#include <random>
#include <utility>

#include "Support.h"

namespace {
// What another process does just before the hub's next watch.
std::function<void()> meanwhile;
}

// Takes the place of the C library's.
extern "C" int inotify_add_watch( int fd, const char* path,
                                  uint32_t mask ) noexcept {
   if ( meanwhile ) meanwhile();
   return int( syscall( SYS_inotify_add_watch, fd, path, mask ) );
}

namespace Brane::Test {
namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr int deadline = 30000;  // ms

bool readable( const DoorbellHub& hub, int milliseconds = 0 ) {
   pollfd poll{ hub.fd(), POLLIN, 0 };
   return ::poll( &poll, 1, milliseconds ) == 1;
}

class Doorbell : public TableTest {
 protected:
   // The rings that the hub passes on from now on; advances the time by 1 s.
   int rings( DoorbellHub& hub ) {
      int before = calls;
      now += 1;
      hub.dispatch( now );
      return calls - before;
   }
   DoorbellHub::Callback count() {
      return [this]( auto ) { ++calls; };
   }
   std::unique_ptr<TableWriter> newWriter( const std::string& at ) {
      return std::make_unique<TableWriter>( at, layout, 10, options );
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
   hub.add( directory + "/u", [&]( auto ) { ++others; } );
   EXPECT_EQ( rings( hub ), 1 );  // the first look
   EXPECT_FALSE( hub.fallback() );
   put( writer, 1, 1 );
   put( writer, 2, 1 );
   EXPECT_FALSE( readable( hub ) );
   writer.ring();
   writer.ring();
   EXPECT_TRUE( readable( hub ) );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( others, 1 );
   writer.ring();  // has nothing to tell
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
   // Who watches the files alone hears of theirs, and of no others beside them.
   hub.addFiles( path, count() );
   rings( hub );
   std::ofstream( directory + "/other" ).close();
   EXPECT_EQ( rings( hub ), 0 );
   std::filesystem::rename( path + ".lock", path + ".gone" );
   EXPECT_EQ( rings( hub ), 1 );
}

// A writer keeps others out until it is killed. The bell reports the death, and the
// change that it did not ring for.
TEST_F( Doorbell, TellsOfAWriterThatWasKilledBeforeItRang ) {
   Pipe ready, go;
   pid_t first = start( [&] {
      TableWriter writer( path, layout, 10, options );
      ready.send( 1 );
      go.receive();
      put( writer, 1, 1 );
      kill( getpid(), SIGKILL );
   } );
   ready.receive();
   DoorbellHub hub;
   Followed followed( path, layout );
   hub.add( path, [&]( auto ) {
      ++calls;
      followed.drain();
   } );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_TRUE( followed.reader.writerAlive() );
   try {
      newWriter( path );
      ADD_FAILURE() << "admitted";
   } catch ( const SecondWriterError& e ) {
      EXPECT_EQ( e.pid(), first );
      EXPECT_THAT( e.what(), testing::HasSubstr( std::to_string( first ) ) );
   }
   EXPECT_THROW( removeTableFiles( path ), SecondWriterError );
   go.send( 1 );
   EXPECT_TRUE( WIFSIGNALED( ended( first ) ) );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( followed.content[1], Record::of( 1, 1 ) );
   EXPECT_FALSE( followed.reader.writerAlive() );
   // Called again a little later, since the bell may ring before the lock is free.
   EXPECT_LT( hub.due(), now + 1 );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( hub.due(), never );
   auto second = newWriter( path );
   EXPECT_EQ( second->attachReport().survivors, 1u );
   EXPECT_THROW( newWriter( path ), SecondWriterError );
   EXPECT_TRUE( followed.reader.writerAlive() );
}

// As on a system without a free inotify instance.
TEST_F( Doorbell, FallsBackToTimeWithoutInotify ) {
   TableWriter writer( path, layout, 10, options );
   Followed followed( path, layout );
   DoorbellHub hub( false );
   EXPECT_EQ( hub.fd(), -1 );
   EXPECT_EQ( hub.due(), never );
   DoorbellHub::Id id = hub.add( path, [&]( auto ) {
      ++calls;
      followed.drain();
   } );
   EXPECT_TRUE( hub.fallback() );
   for ( int look = 1; look < 4; ++look ) {
      put( writer, 1, look );
      EXPECT_EQ( hub.dispatch( now ), now + DoorbellHub::fallbackInterval );
      hub.dispatch( now + 0.01 );
      EXPECT_EQ( calls, look );
      EXPECT_EQ( followed.content[1], Record::of( 1, look ) );
      now += DoorbellHub::fallbackInterval;
   }
   hub.remove( id );
   EXPECT_EQ( hub.due(), never );
}

// Runs as a process of another user in the group, if this one may.
template <class Body>
void asReader( Body body ) {
   const bool privileged = geteuid() == 0;
   ASSERT_EQ( privileged ? seteuid( 65534 ) : 0, 0 );
   body();
   ASSERT_EQ( privileged ? seteuid( 0 ) : 0, 0 );
}

// A bell that may not be read yet, as between its creation and its mode.
TEST_F( Doorbell, LooksByTimeUntilARefusedBellCanBeWatched ) {
   TableWriter writer( path, layout, 10, options );
   ASSERT_EQ( chmod( directory.c_str(), 0755 ), 0 );
   ASSERT_EQ( chmod( ( path + ".bell" ).c_str(), 0 ), 0 );
   DoorbellHub hub;
   asReader( [&] { hub.add( path, count() ); } );
   EXPECT_TRUE( hub.fallback() );
   ASSERT_EQ( chmod( ( path + ".bell" ).c_str(), 0640 ), 0 );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_FALSE( hub.fallback() );
   EXPECT_EQ( hub.due(), never );
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_TRUE( readable( hub ) );
}

// Opens the file for reading and read-locks it; -1 where it may not be read.
int lockedForReading( const std::string& file ) {
   int fd = open( file.c_str(), O_RDONLY | O_CLOEXEC );
   struct flock lock {};
   lock.l_type = F_RDLCK;
   EXPECT_TRUE( fd < 0 || fcntl( fd, F_OFD_SETLK, &lock ) == 0 );
   return fd;
}

// A process of the group may lock files that it may read. It gets a separate bell,
// and neither the writer nor other readers lose theirs.
TEST_F( Doorbell, AReadersLocksAreInNobodysWay ) {
   newWriter( path ).reset();
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
   auto writer = newWriter( path );
   EXPECT_GE( rings( hub ), 1 );
   asReader( [&] {
      EXPECT_TRUE( writerAlive( path ) );
      EXPECT_EQ( TableReader( path, layout ).state(), readerAttached );
   } );
   EXPECT_FALSE( hub.fallback() );
   put( *writer, 1, 1 );
   writer->ring();
   EXPECT_EQ( rings( hub ), 1 );
   writer.reset();
   EXPECT_FALSE( writerAlive( path ) );
   close( bell );
   // The writer's own user can lock it; that is not called a second writer.
   int lock = lockedForReading( path + ".lock" );
   EXPECT_THROW( newWriter( path ), CreateError );
   close( lock );
   EXPECT_NO_THROW( newWriter( path ) );
}

TEST_F( Doorbell, FindsATableAgainWhoseMoveTheQueueLost ) {
   std::string place = directory + "/a";
   std::filesystem::create_directory( place );
   auto former = newWriter( place + "/t" );
   put( *former, 1, 0 );
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
   auto writer = newWriter( place + "/t" );
   EXPECT_EQ( rings( hub ), 1 );
   rings( hub );
   put( *writer, 1, 1 );
   writer->ring();
   EXPECT_EQ( rings( hub ), 1 );
   // The former files no longer ring.
   put( *former, 1, 1 );
   former->ring();
   EXPECT_EQ( rings( hub ), 0 );
}

TEST_F( Doorbell, CallbacksMayRemoveThemselvesAndOthers ) {
   DoorbellHub hub;
   DoorbellHub::Id first = 0, second = 0;
   first = hub.add( path, [&]( auto ) {
      ++calls;
      hub.remove( second );
      hub.remove( first );
   } );
   second = hub.add( directory + "/u", count() );
   EXPECT_EQ( rings( hub ), 1 );
   EXPECT_EQ( hub.due(), never );
}

// One change, then silence until it was notified: a lost ring would be waited for
// in vain. The answer comes from within the call, so that the next ring comes at
// any moment of the hub's work.
TEST_F( Doorbell, LosesNoWakeUpInManyRounds ) {
   const uint64_t rounds = std::getenv( "PIMSM_LONG" ) ? 20000 : 1000;
   Pipe answers;
   TableWriter writer( path, layout, 10, options );
   pid_t child = start( [&] {
      TableReader reader( path, layout );
      TableFollower follower( reader );
      DoorbellHub hub;
      uint64_t heard = 0;
      hub.add( path, [&]( auto ) {
         follower.drain( [&]( const Change& change ) {
            heard = static_cast<const Record*>( change.record )->generation;
            answers.send( heard );
         } );
      } );
      answers.send( heard );
      while ( heard != rounds ) {
         using std::chrono::steady_clock;
         std::chrono::duration<double> time =
            steady_clock::now().time_since_epoch();
         double wait = hub.dispatch( time.count() ) - time.count();
         bool silent = wait == never;
         int limit = silent ? deadline : int( std::max( 0.0, wait ) * 1000 ) + 1;
         if ( heard != rounds && !readable( hub, limit ) && silent ) _exit( 3 );
      }
   } );
   for ( uint64_t round = 0; round <= rounds && !HasFailure(); ++round ) {
      if ( round > 0 ) {
         put( writer, 1, round );
         writer.ring();
      }
      EXPECT_EQ( answers.receive(), round );
   }
   EXPECT_EQ( ended( child ), 0 );
}

// Directories, bell and table are made between any two of the hub's system calls, and
// the deepest directory is moved away or removed with all that it holds. Once the hub is silent,
// it has seen the table and hears the bell.
TEST_F( Doorbell, ADirectoryMadeMeanwhileIsNotMissed ) {
   const std::vector<std::string> names{ "", "/a", "/b", "/c", "/t.bell", "/t" };
   std::minstd_rand random( 1 );
   DoorbellHub hub;
   for ( int round = 0; round < 2000 && !HasFailure(); ++round ) {
      const std::string top = directory + '/' + std::to_string( round );
      std::vector<std::string> made;
      size_t moves = 3;
      auto step = [&] {
         const size_t directories = std::min<size_t>( made.size(), 4 );
         if ( moves > 0 && directories > 0 && random() % 4 == 0 ) {
            made.resize( directories );
            if ( --moves == 0 )
               std::filesystem::remove_all( made.back() );
            else
               std::filesystem::rename( made.back(),
                                        top + "-gone" + std::to_string( moves ) );
            made.pop_back();
         } else if ( made.size() < names.size() ) {
            made.push_back( ( made.empty()      ? top
                              : made.size() > 4 ? made[3]
                                                : made.back() ) +
                            names[made.size()] );
            if ( made.size() <= 4 )
               std::filesystem::create_directory( made.back() );
            else
               std::ofstream( made.back() ).close();
         }
      };
      meanwhile = [&] {
         while ( random() % 2 ) step();
      };
      bool seen = false;
      const auto id = hub.add( top + "/a/b/c/t", [&]( auto ) {
         seen = access( ( top + "/a/b/c/t" ).c_str(), F_OK ) == 0;
      } );
      auto untilSilent = [&] {
         do ++now;
         while ( hub.dispatch( now ) != never || readable( hub ) );
      };
      for ( untilSilent(); made.size() < names.size(); untilSilent() ) step();
      meanwhile = nullptr;
      untilSilent();
      EXPECT_TRUE( std::exchange( seen, false ) ) << round;
      std::ofstream( made[4] ) << 'x';
      untilSilent();
      EXPECT_TRUE( seen ) << round;
      hub.remove( id );
   }
}

}
}
