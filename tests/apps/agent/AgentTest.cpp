#include "apps/agent/Agent.h"

#include <gtest/gtest.h>

#include "apps/config/ConfigReader.h"
#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

// A former process left more than one turn of the loop reloads: its states live from
// now on, not from the capture's time.
TEST( Captures, WaitForWhatIsReloaded ) {
   constexpr int kRoutes = 40000;
   Mox::Test::TempRoot root;
   {
      namespace Test = Routing::Pim::SparseMode::Test;
      Mox::TestClock clock{ 1000.0 };
      Test::AgentSide former( clock, root.path() );
      former.model->maxRoutesIs( kRoutes );
      former.start();
      Test::Vrf vrf{ former.model };
      for ( int i = 0; i < kRoutes; ++i )
         vrf.wc( "233.252." + std::to_string( i / 250 ) + '.' +
                 std::to_string( i % 250 ) );
      former.publish();
   }
   AgentOptions options;
   options.config = parseConfig(
      "vrfs:\n- name: default\n  maxRoutes: 40000\n"
      "  interfaces: [{name: eth0, addresses: [10.0.0.13/24]}]\n",
      "test" );
   options.root = root.path();
   options.captures = { { PIMSM_SOURCE_DIR "/examples/demo/join.pcap", "" } };
   Mox::Loop loop;
   Agent agent( loop, std::move( options ) );
   const Router::VrfRouter& router = agent.families().front()->router();
   for ( ; !router.adopted(); loop.dispatch() )
      EXPECT_NE( agent.summary().find( "replayed 0 of 4" ), std::string::npos );
}

}
}
