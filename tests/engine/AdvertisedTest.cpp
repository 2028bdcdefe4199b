#include "engine/Advertised.h"

#include <gtest/gtest.h>

#include "platform/entity/EventCounter.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode;
using Test::addr;
using Test::sgKey;

TEST( Advertised, SourcesFollowTheConfiguration ) {
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   RouterCounters counters;
   VrfConfig config;
   auto table = AdvertisedSgStatus::mount( manager, "t", ::Brane::tableWriter, 2 );
   auto entry = [&]( const char* group, bool anycast ) {
      return AdvertisedConfig{ addr( "10.0.0.1" ), addr( group ),
                               addr( "10.9.9.9" ), anycast };
   };
   constexpr auto kFamily = Vantu::AddressFamily::ipv4;
   config.advertised = {
      entry( "239.1.1.1", false ),
      entry( "239.1.1.2", true ),
      { addr( "2001:db8::1" ), addr( "ff3e::1" ), addr( "2001:db8::9" ), false } };
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( table->coll().size(), 2u );
   AdvertisedSg seen;
   ASSERT_EQ( table->coll().find( sgKey( "10.0.0.1", "239.1.1.2" ), seen ),
              ::Brane::lookupFound );
   EXPECT_EQ( seen.rp, addr( "10.9.9.9" ) );
   EXPECT_TRUE( seen.anycastDiscovered );
   auto writes = [&] { return Mox::eventCounter( "t", "collIs" )->value(); };
   EXPECT_EQ( writes(), 2u );
   // One entry goes, one changes, and the new one finds room in a full table.
   config.advertised = { entry( "239.1.1.2", false ), entry( "239.1.1.3", false ) };
   publishAdvertised( *table, config, kFamily, counters );
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( writes(), 4u );
   EXPECT_EQ( table->coll().size(), 2u );
   config.advertised.push_back( entry( "239.1.1.4", false ) );
   publishAdvertised( *table, config, kFamily, counters );
   EXPECT_EQ( counters.refusedCount( tableFull ), 1u );
}

}
}
