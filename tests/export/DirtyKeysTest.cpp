// A change set's keys against a plain map, in a random walk.
#include "export/DirtyKeys.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace Routing::Pim::SparseMode::Brane {

TEST( DirtyKeys, AreThoseOfAMap ) {
   const unsigned seed = std::random_device()();
   std::mt19937 random( seed );
   DirtyKeys<unsigned> keys;
   std::map<unsigned, bool> plain;
   for ( unsigned step = 0; step < 20000; ++step ) {
      const unsigned key = random() % ( step / 2000 % 2 == 0 ? 700 : 7 );
      const bool flag = random() % 2 != 0;
      if ( random() % 2 != 0 ) {
         EXPECT_EQ( keys.try_emplace( key, flag ).second,
                    plain.try_emplace( key, flag ).second );
      } else {
         EXPECT_EQ( keys.erase( key ), plain.erase( key ) );
      }
      const auto found = keys.find( key );
      ASSERT_EQ( found != keys.end(), plain.count( key ) != 0 ) << "seed " << seed;
      ASSERT_TRUE( found == keys.end() || found->first == key );
      if ( step % 500 != 0 ) continue;
      std::map<unsigned, bool> all( keys.begin(), keys.end() );
      ASSERT_EQ( all, plain ) << "seed " << seed << ", step " << step;
   }
}

}
