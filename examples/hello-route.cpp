// A hello in fifteen lines: publishes one route with one interface that a neighbour has
// joined, prints a macro's answer about it, and ends. `pimsm-show` prints the route.
// usage: hello-route [DIRECTORY OF THE TABLES]
#include <iostream>

#include <pimsm/pimsm.h>

using namespace Routing::Pim::SparseMode;

int main( int argc, char** argv ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop,
                                  argc > 1 ? argv[1] : "/dev/shm/pimsm" );
   VrfWriter vrf( manager, clock, Vantu::AddressFamily::ipv4,
                  L3::VrfName( "default" ),
                  { 1000, 10000 } );  // the model, and tables of this capacity
   while ( !vrf.ready() ) loop.dispatch();  // what a former run left
   auto route = vrf.model()->routeIs(
      { Vantu::IpGenAddr( "0.0.0.0" ), Vantu::IpGenAddr( "233.252.0.1" ) } );
   route->wildCardIs( true );  // (*, 233.252.0.1)
   auto intf = route->routeIntfIs( Vantu::IntfId( "eth1" ) );
   intf->joinStateIs( Intf::joined );
   intf->forwardIs( intf->forwardDesired() );
   std::cout << route->key() << ": immediate_olist(*,G) of " << intf->intfId()
             << " is " << std::boolalpha << intf->immediateOlistWc() << std::endl;
   Mox::Loop::TurnEnd turnEnd( loop, [&] {  // published 10 to 50 ms later
      vrf.handleTurnEnd();
      if ( vrf.idle() ) loop.stop();
   } );
   loop.run();
}
