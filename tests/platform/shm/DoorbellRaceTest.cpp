// A table whose directories are made while its watches are being set.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/shm/DoorbellHub.h"
#include "tests/support/TempRoot.h"

namespace Brane {
namespace {

// Calls back until the table was seen; false when the hub stays silent.
bool seesTable( DoorbellHub& hub, const std::string& path ) {
   bool seen = false;
   hub.add( path, [&] { seen = access( path.c_str(), F_OK ) == 0; } );
   double now = 0.0;
   constexpr int kDeadline = 30000;  // ms without a word; the writer may be starved
   while ( !seen ) {
      bool later = hub.dispatch( now ) <= now + 1;
      now += 1;
      pollfd item{ hub.fd(), POLLIN, 0 };
      if ( !seen && !later && poll( &item, 1, kDeadline ) != 1 ) return false;
   }
   return true;
}

// An ancestor is watched until the directory itself is there: whoever comes between
// the look and the watch must be found all the same.
TEST( DoorbellRace, ADirectoryMadeMeanwhileIsNotMissed ) {
   Mox::Test::TempRoot root;
   constexpr int kRounds = 300;
   std::atomic<int> started = -1;
   std::atomic<int> finished = -1;
   std::thread writer( [&] {
      for ( int round = 0; round < kRounds; ++round ) {
         while ( started < round ) std::this_thread::yield();
         std::string directory = root.path() + '/' + std::to_string( round );
         // Varied, so that it hits every step of the watcher.
         for ( volatile int spin = 0; spin < round % 100 * 50; ) spin = spin + 1;
         for ( const char* next : { "", "/a", "/b", "/c", "/d" } ) {
            directory += next;
            std::filesystem::create_directory( directory );
         }
         close( open( ( directory + "/t" ).c_str(), O_CREAT | O_WRONLY, 0640 ) );
         finished = round;
      }
   } );
   int missed = 0;
   for ( int round = 0; round < kRounds; ++round ) {
      DoorbellHub hub;
      started = round;
      if ( missed == 0 ) {
         std::string path =
            root.path() + '/' + std::to_string( round ) + "/a/b/c/d/t";
         if ( !seesTable( hub, path ) ) ++missed;
      }
      while ( finished < round ) std::this_thread::yield();
   }
   writer.join();
   EXPECT_EQ( missed, 0 );
}

}
}
