#include <gtest/gtest.h>

#include "tests/support/ExportPair.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

class Mirror : public testing::Test {
 protected:
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   AgentSide agent{ clock, root.path() };
};

TEST_F( Mirror, ShowsWhatTheAgentHolds ) {
   ReaderSide early( clock, root.path() );
   early.start();
   agent.start();
   RouteKey key{ Vantu::IpGenAddr( "192.0.2.1" ),
                 Vantu::IpGenAddr( "233.252.0.1" ) };
   Mox::Ptr<Route> route = agent.model->routeIs( key );
   route->spTreeIs( true );
   route->routeIntfIs( Vantu::IntfId( "eth1" ) )->joinStateIs( Intf::joined );
   agent.publish();
   early.follow();
   ReaderSide late( clock, root.path() );
   late.start();
   for ( ReaderSide* side : { &early, &late } ) {
      const Route* seen = side->model->route( key );
      ASSERT_NE( seen, nullptr );
      EXPECT_TRUE( seen->spTree() );
      ASSERT_NE( seen->routeIntf( Vantu::IntfId( "eth1" ) ), nullptr );
      EXPECT_EQ( seen->routeIntf( Vantu::IntfId( "eth1" ) )->joinState(),
                 Intf::joined );
      EXPECT_EQ( side->model->sgRoutes(), 1U );
   }
   agent.model->routeDel( key );
   agent.publish();
   early.follow();
   EXPECT_EQ( early.model->route().size(), 0U );
   EXPECT_EQ( early.model->sgRoutes(), 0U );
   EXPECT_EQ( early.model->source().size(), 0U );
   EXPECT_EQ( agent.tables->route().size(), 0U );
   EXPECT_EQ( agent.tables->routeIntf().size(), 0U );
}

}
}
