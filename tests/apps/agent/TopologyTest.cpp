#include "apps/agent/engine/Topology.h"

#include <gtest/gtest.h>

#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Test::addr;
using Routing::Pim::SparseMode::Test::intfId;
using Vantu::IpGenPrefix;

TEST( KernelRib, TheLongestPrefixAndThenTheLowestMetricWins ) {
   KernelRib rib;
   rib.add( IpGenPrefix( "0.0.0.0/0" ), { intfId( "eth0" ), addr( "10.0.0.1" ) } );
   rib.add( IpGenPrefix( "198.51.100.0/24" ),
            { intfId( "eth1" ), addr( "10.0.1.1" ), false, 50 } );
   rib.add( IpGenPrefix( "198.51.100.0/24" ),
            { intfId( "eth2" ), addr( "10.0.2.1" ), false, 20 } );
   rib.add( IpGenPrefix( "198.51.100.0/24" ),
            { intfId( "eth3" ), addr( "10.0.3.1" ), false, 20 } );
   rib.add( IpGenPrefix( "198.51.100.128/25" ), {} );
   auto by = [&]( const char* address ) {
      return std::string( rib.find( addr( address ) )->route.interface.name() );
   };
   EXPECT_EQ( by( "192.0.2.1" ), "eth0" );
   EXPECT_EQ( by( "198.51.100.127" ), "eth2" );
   EXPECT_EQ( by( "198.51.100.128" ), "" ) << "thrown away";
   EXPECT_FALSE( KernelRib().find( addr( "192.0.2.1" ) ).has_value() );
}

TEST( Topology, SubnetsComeBeforeRoutesOfTheirLengthAndOwnAddressesLeadNowhere ) {
   VrfConfig config;
   InterfaceConfig& interface = config.interfaces.emplace_back();
   interface.name = intfId( "eth1" );
   interface.addresses = { { addr( "192.0.2.1" ), IpGenPrefix( "192.0.2.0/24" ) } };
   for ( const char* prefix : { "192.0.2.0/24", "192.0.2.64/26", "0.0.0.0/0" } ) {
      RpfRouteConfig& route = config.rpfRoutes.emplace_back();
      route.prefix = IpGenPrefix( prefix );
      route.interface = intfId( "eth0" );
      route.neighbor = addr( "10.0.0.1" );
   }
   Topology topology( config );
   auto path = [&]( const char* to ) { return topology.pathTo( addr( to ) ); };
   EXPECT_EQ( path( "192.0.2.9" ).rpf.intfId, intfId( "eth1" ) );
   EXPECT_TRUE( path( "192.0.2.9" ).attached );
   EXPECT_EQ( path( "192.0.2.9" ).rpf.neighbor, addr( "192.0.2.9" ) );
   EXPECT_EQ( path( "192.0.2.65" ).rpf.intfId, intfId( "eth0" ) );
   EXPECT_FALSE( path( "192.0.2.65" ).attached );
   EXPECT_EQ( path( "203.0.113.1" ).rpf.intfId, intfId( "eth0" ) );
   EXPECT_EQ( path( "192.0.2.1" ).rpf, Routing::Pim::Rpf() ) << "this router";
}

}
}
