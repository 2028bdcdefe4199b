#include "apps/agent/engine/SourceEngine.h"

#include <gtest/gtest.h>

#include "apps/agent/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;

const char* const kConfig =
   "vrfs:\n"
   "- name: default\n"
   "  interfaces:\n"
   "  - {name: eth1, addresses: [198.51.100.1/24]}\n"
   "  - {name: eth2, addresses: [198.51.101.1/24]}\n"
   "  rpf-routes:\n"
   "  - {prefix: 0.0.0.0/0, interface: eth2, neighbor: 198.51.101.254}\n";

// A route that a join made before has an entry in the kernel, and no upcall.
TEST( SourceEngine, SourcesOfJoinedRoutesAreKnownByTheCounters ) {
   Mox::TestClock clock;
   const VrfConfig config = parseConfig( kConfig, "test" ).vrfs[0];
   Topology topology( config );
   auto model = Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   Routes routes( model, clock, topology, nullptr );
   AgentCounters counters;
   SourceEngine engine( routes, clock, topology, counters );
   const auto own = sgKey( "198.51.100.7", "233.252.0.1" );
   const auto other = sgKey( "203.0.113.77", "233.252.0.1" );
   engine.receiveMore( own, 0.0 );
   EXPECT_EQ( routes.find( own ), nullptr ) << "counters make no state";
   for ( const auto& key : { own, other } ) {
      routes.record( key, intfId( "eth2" ) )->joinStateIs( Routes::Intf::joined );
      routes.update( key );
   }
   engine.receiveMore( own, SourceEngine::keepalivePeriod );
   EXPECT_TRUE( routes.find( own )->katExpired() ) << "it was long ago";
   engine.receiveMore( own, 10.0 );
   engine.receiveMore( other, 10.0 );
   EXPECT_FALSE( routes.find( own )->katExpired() );
   EXPECT_TRUE( routes.find( other )->katExpired() ) << "behind another router";
   clock.runUntil( clock.now() + 199 );
   EXPECT_FALSE( routes.find( own )->katExpired() );
   clock.runUntil( clock.now() + 1 );
   EXPECT_TRUE( routes.find( own )->katExpired() );
}

}
}
