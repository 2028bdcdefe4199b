#include "engine/Topology.h"

#include <gtest/gtest.h>

#include "apps/config/ConfigReader.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using Routing::Pim::SparseMode::Test::addr;
using Routing::Pim::SparseMode::Test::intfId;
using Routing::Pim::SparseMode::Test::rpfBy;

// Subnets come before routes of their length; own addresses lead nowhere, nor does the
// unspecified one, though a default route matches it.
TEST( Topology, TheLongestPrefixWins ) {
   const VrfConfig config =
      Agent::parseConfig(
         "vrfs:\n"
         "- name: default\n"
         "  interfaces: [{name: eth0}, {name: eth1, addresses: [192.0.2.1/24]}]\n"
         "  rpf-routes:\n"
         "  - {prefix: 192.0.2.0/24, interface: eth0, neighbor: 10.0.0.1}\n"
         "  - {prefix: 192.0.2.64/26, interface: eth0, neighbor: 10.0.0.1}\n"
         "  - {prefix: 0.0.0.0/0, interface: eth0, neighbor: 10.0.0.1,\n"
         "     backup: {interface: eth1, neighbor: 192.0.2.7, metric: 7}}\n"
         "  rps:\n"
         "  - {address: 10.0.0.2, groups: [239.1.0.0/16]}\n"
         "  - {address: 10.0.0.3, groups: [239.0.0.0/8]}\n"
         "  - {address: 10.0.0.4, groups: [239.0.0.0/8]}\n",
         "test" )
         .vrfs[0];
   Topology topology( config );
   auto path = [&]( const char* address ) {
      Topology::Path to = topology.pathTo( addr( address ) );
      return std::string( to.rpf.intfId.name() ) + ' ' +
             valueToStrep( to.rpf.neighbor ) + ( to.attached ? " attached" : "" );
   };
   EXPECT_EQ( path( "192.0.2.9" ), "eth1 192.0.2.9 attached" );
   EXPECT_EQ( path( "192.0.2.65" ), "eth0 10.0.0.1" );
   EXPECT_EQ( path( "203.0.113.1" ), "eth0 10.0.0.1" );
   EXPECT_EQ( topology.pathTo( addr( "203.0.113.1" ) ).backup,
              rpfBy( "eth1", "192.0.2.7", 1, 7 ) );
   EXPECT_EQ( topology.pathTo( addr( "192.0.2.1" ) ).rpf, Routing::Pim::Rpf() );
   EXPECT_EQ( topology.pathTo( addr( "0.0.0.0" ) ).rpf, Routing::Pim::Rpf() );
   EXPECT_EQ( topology.rpOf( addr( "239.1.1.1" ) ), addr( "10.0.0.2" ) );
   EXPECT_EQ( topology.rpOf( addr( "239.2.1.1" ) ), addr( "10.0.0.3" ) );
   EXPECT_TRUE( topology.rpOf( addr( "233.252.0.1" ) ).isUnspecified() );
}

}
}
