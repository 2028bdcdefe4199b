// A mirror in fifteen lines: prints the routes of the VRF "default" as they come and go.
// usage: mirror [DIRECTORY OF THE TABLES]
// [mirror]
#include <iostream>

#include <pimsm/pimsm.h>

using Routing::Pim::SparseMode::VrfMirror;

int main( int argc, char** argv ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop,
                                  argc > 1 ? argv[1] : "/dev/shm/pimsm" );
   VrfMirror::Observer tell;
   tell.route = []( const auto& key, const auto*, const auto* now ) {
      std::cout << key << ( now != nullptr ? " stands" : " went" ) << std::endl;
   };
   VrfMirror vrf( manager, clock, Vantu::AddressFamily::ipv4,
                  L3::VrfName( "default" ), tell );
   Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
   loop.run();
}
// [mirror]
