// Makes one route with one interface that a neighbour has joined, prints the
// protocol's answers about it, publishes it, and ends. `pimsm-show` prints it from
// the tables.
// usage: hello-route [DIRECTORY OF THE TABLES]
#include <iostream>

#include <pimsm/pimsm.h>

namespace Sm = Routing::Pim::SparseMode;

int main( int argc, char** argv ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager(
      clock, &loop, argc > 1 ? argv[1] : Corvex::EntityManager::defaultRoot );
   // The model, its tables with this capacity, and the reactors that keep the
   // tables in step with the model.
   Sm::VrfWriter vrf( manager, clock, Vantu::AddressFamily::ipv4,
                      L3::VrfName( "default" ), { 1000, 10000 } );
   while ( !vrf.ready() ) loop.dispatch();  // a former run's routes

   // (*, 233.252.0.1) comes in by eth0; a neighbour on eth1 has joined it.
   auto route = vrf.model()->routeIs(
      { Vantu::IpGenAddr( "0.0.0.0" ), Vantu::IpGenAddr( "233.252.0.1" ) } );
   route->wildCardIs( true );
   route->umhIs()->rpfIs(
      { Vantu::IntfId( "eth0" ), Vantu::IpGenAddr( "192.0.2.1" ), 110, { 20 } } );
   auto intf = route->routeIntfIs( Vantu::IntfId( "eth1" ) );
   intf->joinStateIs( Sm::Intf::joined );
   intf->forwardIs( intf->forwardDesired() );
   std::cout << route->key() << ": immediate_olist(*,G) of " << intf->intfId()
             << " is " << std::boolalpha << intf->immediateOlistWc() << std::endl;

   // Changes are published 10 to 50 ms later.
   Mox::Loop::TurnEnd turnEnd( loop, [&] {
      vrf.handleTurnEnd();
      if ( vrf.idle() ) loop.stop();
   } );
   loop.run();
}
