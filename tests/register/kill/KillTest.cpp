#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "tests/platform/shm/kill/KillPoints.h"
#include "tests/register/RegisterSides.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using ::Brane::Test::bytesAre;
using ::Brane::Test::bytesOf;
using ::Brane::Test::KillPoints;
using Content = std::set<AdvertisedSg>;

Content contentOf( const AdvertisedSgStatus& status ) {
   Content content;
   status.coll().visit( nullptr, [&]( const AdvertisedSg& value ) {
      EXPECT_TRUE( content.insert( value ).second );
      return true;
   } );
   EXPECT_EQ( status.coll().undecodable(), 0U );
   return content;
}

// An agent's table, and a place for the copy that a kill left.
class RegisterKill : public testing::Test {
 protected:
   Mox::String file( const Mox::Test::TempRoot& where ) const {
      return where.path() + '/' + agent.advertised->name() + "/coll";
   }

   // Checks that a reader and the next agent find the content before the call or
   // after it, and a working table.
   void check( const std::string& image, const Content& before,
               const Content& after ) {
      std::filesystem::create_directories(
         std::filesystem::path( file( dead ) ).parent_path() );
      std::filesystem::remove( file( dead ) );
      bytesAre( file( dead ), image );
      RegisterSide reader( clock, dead.path(), ::Brane::tableReader );
      Content seen = contentOf( *reader.advertised );
      EXPECT_TRUE( seen == before || seen == after );
      RegisterSide next( clock, dead.path(), ::Brane::tableWriter );
      Content taken = contentOf( *next.advertised );
      EXPECT_TRUE( taken == before || taken == after );
      EXPECT_TRUE( taken == seen || seen == before ) << "went back in time";
      next.advertised->collDelAll();
      for ( unsigned i = 1; i <= RegisterSide::kCapacity; ++i ) {
         next.advertised->collIs( advertisedOf( i, "192.0.2.99" ) );
      }
      EXPECT_EQ( next.advertised->coll().writer()->verify().damaged, 0U );
      next.manager.dispatch();
      clock.advance( 0.01 );
      reader.manager.dispatch();
      EXPECT_EQ( contentOf( *reader.advertised ), contentOf( *next.advertised ) );
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root, dead;
   RegisterSide agent{ clock, root.path(), ::Brane::tableWriter };
};

TEST_F( RegisterKill, AnywhereInAMutatorLeavesTheOldOrTheNew ) {
   const uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   AdvertisedSgStatus& status = *agent.advertised;
   size_t points = 0;
   for ( unsigned step = 0; step < 60 && !HasFailure(); ++step ) {
      const Content before = contentOf( status );
      const unsigned number = 1 + random() % RegisterSide::kCapacity;
      const AdvertisedSg value = advertisedOf(
         number, "192.0.2." + std::to_string( 1 + step ), step % 2 != 0 );
      const unsigned kind = random() % 3;
      auto images = KillPoints::of( file( root ), [&] {
         if ( kind == 0 ) {
            status.collDel( value.key );
         } else if ( kind == 1 ) {
            status.collIs( value );
         } else {
            AdvertisedSgTable::InPlace built = status.collInPlace();
            built.is( value );
            status.collCommit( &built );
         }
      } );
      const Content after = contentOf( status );
      for ( const std::string& image : images ) {
         SCOPED_TRACE( "kill point " + std::to_string( points++ ) );
         check( image, before, after );
      }
   }
   EXPECT_GT( points, 300U );
   RecordProperty( "points", std::to_string( points ) );
}

}
}
