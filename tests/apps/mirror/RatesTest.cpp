#include "apps/mirror/Rates.h"

#include <gtest/gtest.h>

#include "tests/apps/mirror/Published.h"

namespace Show {
namespace {

TEST( Rates, AreKnownBetweenTwoReadingsOfOneCount ) {
   ShownRouter router;
   router.publishTraffic();
   const auto key = SmTest::sgKey( "198.51.100.7", "239.1.2.3" );
   View view( router.root.path() );
   struct Row {
      const char* what;
      uint64_t packets, bytes;
      double lastPacket;
      std::optional<double> rate, bits;
   };
   const Row rows[] = { { "steady", 5000, 50000, 100, {}, {} },
                        { "", 5400, 90000, 104, 100, 80000 },
                        { "slow", 5401, 90100, 124, 0.05, 40 },
                        { "silent", 5401, 90100, 124, 0, 0 },
                        { "begun anew", 5300, 100000, 130, {}, {} },
                        { "the bytes, too", 5500, 90000, 132, {}, {} },
                        { "no time between", 5600, 100000, 132, {}, {} } };
   std::optional<Rates> rates;
   for ( const Row& row : rows ) {
      router.forwarding->cacheIs(
         { key, row.packets, row.bytes, 0, row.lastPacket } );
      if ( rates ) {
         rates->read();
      } else {
         rates.emplace( view.mirror( "default", Vantu::AddressFamily::ipv4 ) );
      }
      const auto rate = rates->rate( key );
      ASSERT_EQ( rate.has_value(), row.rate.has_value() ) << row.what;
      if ( !rate ) continue;
      EXPECT_DOUBLE_EQ( rate->packets, *row.rate ) << row.what;
      EXPECT_DOUBLE_EQ( rate->bits, *row.bits ) << row.what;
   }
   router.forwarding.reset();
   EXPECT_FALSE( rates->rate( key ) ) << "the forwarding process is gone";
}

}
}
