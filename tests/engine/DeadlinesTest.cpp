#include "engine/Deadlines.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "platform/loop/TestClock.h"

namespace Router {
namespace {

struct Record : Deadline {
   double due = Deadlines::never;
};

// Queued, put off, brought forward and removed at random: each is told when it is due, as a map
// of times says, and nothing else happens.
TEST( Deadlines, TellWhatIsDueWhateverIsMoved ) {
   const uint64_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   Mox::TestClock clock( 0.0 );
   std::vector<Record> records( 200 );
   Deadlines* queue = nullptr;
   Deadlines deadlines( clock, [&]( Deadline& deadline ) {
      auto& record = static_cast<Record&>( deadline );
      EXPECT_FALSE( record.queued() );
      if ( record.due > clock.now() ) return queue->atMost( record, record.due );
      EXPECT_EQ( record.due, clock.now() ) << "late";
      record.due = Deadlines::never;
      // Another one ends with it.
      Record& other = records[random() % records.size()];
      other.due = Deadlines::never;
      queue->remove( other );
   } );
   queue = &deadlines;
   for ( int step = 0; step < 20000; ++step ) {
      Record& record = records[random() % records.size()];
      if ( random() % 8 == 0 ) {
         record.due = Deadlines::never;
         deadlines.remove( record );
      } else {
         record.due = clock.now() + 1 + static_cast<double>( random() % 500 );
         deadlines.atMost( record, record.due );
      }
      if ( random() % 4 == 0 ) clock.runUntil( clock.now() + 1 );
      for ( const Record& each : records )
         ASSERT_TRUE( each.due == Deadlines::never || each.due > clock.now() )
            << "step " << step;
   }
   clock.runUntil( clock.now() + 501 );
   EXPECT_EQ( deadlines.size(), 0u );
   EXPECT_EQ( clock.nextWakeup(), Mox::Clock::never );
}

}
}
