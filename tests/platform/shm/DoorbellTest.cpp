#include <poll.h>
#include <signal.h>
#include <sys/stat.h>

#include <limits>

#include "Support.h"
#include "platform/shm/DoorbellHub.h"

namespace Brane::Test {
namespace {

constexpr double never = std::numeric_limits<double>::infinity();

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
}

TEST_F( Doorbell, CallsBackAtMostOnceAMillisecondAndLosesNoRing ) {
   TableWriter writer( path, layout, 10, options );
   DoorbellHub hub;
   hub.add( path, count() );
   hub.dispatch( now );
   EXPECT_EQ( calls, 1 );
   put( writer, 1, 1 );
   writer.ring();
   EXPECT_DOUBLE_EQ( hub.dispatch( now + 0.0004 ), now + 0.001 );
   EXPECT_EQ( calls, 1 );
   EXPECT_EQ( hub.dispatch( now + 0.001 ), never );
   EXPECT_EQ( calls, 2 );
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

// A bell that may not be read yet, as between its making and its mode.
TEST_F( Doorbell, LooksByTimeUntilARefusedBellCanBeWatched ) {
   TableWriter writer( path, layout, 10, options );
   ASSERT_EQ( chmod( directory.c_str(), 0755 ), 0 );
   ASSERT_EQ( chmod( ( path + ".bell" ).c_str(), 0 ), 0 );
   bool privileged = geteuid() == 0;
   ASSERT_EQ( privileged ? seteuid( 65534 ) : 0, 0 );
   DoorbellHub hub;
   DoorbellHub::Id id = hub.add( path, count() );
   ASSERT_EQ( privileged ? seteuid( 0 ) : 0, 0 );
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

}
}
