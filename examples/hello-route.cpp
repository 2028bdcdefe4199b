// One route with one interface that a neighbour has joined: prints what the protocol
// says of it, publishes it, and ends. `pimsm-show` prints it from the tables.
// usage: hello-route [DIRECTORY OF THE TABLES]
#include <iostream>

#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"

namespace Sm = Routing::Pim::SparseMode;

int main( int argc, char** argv ) {
   const L3::VrfName vrf( "default" );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager(
      clock, &loop, argc > 1 ? argv[1] : Corvex::EntityManager::defaultRoot );

   // The state, the tables, and what keeps the second in step with the first.
   auto status = Sm::statusFactory( vrf );
   status->maxRoutesIs( 1000 );  // the tables take the room of so many
   status->maxRouteIntfsIs( 10000 );
   auto tables = Sm::Brane::Status::mountInDependencyOrder(
      manager, Sm::Brane::Status::mountPath( Vantu::AddressFamily::ipv4, vrf ),
      Brane::tableWriter, status.get() );
   auto restart = Sm::Brane::routeBraneRestartSmFactory(
      status, tables, Brane::tableWriter, &clock );
   auto writer = Sm::Brane::routeBraneWriterSmFactory( status, tables, &clock );
   while ( !status->initialized() ) loop.dispatch();  // what a former run left

   // (*, 233.252.0.1) comes in by eth0; a neighbour on eth1 has joined it.
   auto route = status->routeIs(
      { Vantu::IpGenAddr( "0.0.0.0" ), Vantu::IpGenAddr( "233.252.0.1" ) } );
   route->wildCardIs( true );
   route->umhIs()->rpfIs(
      { Vantu::IntfId( "eth0" ), Vantu::IpGenAddr( "192.0.2.1" ), 110, { 20 } } );
   auto intf = route->routeIntfIs( Vantu::IntfId( "eth1" ) );
   intf->joinStateIs( Sm::Intf::joined );
   intf->forwardIs( intf->immediateOlistWc() );
   std::cout << route->key() << ": immediate_olist(*,G) of " << intf->intfId()
             << " is " << std::boolalpha << intf->immediateOlistWc() << std::endl;

   // The writer publishes in a review, 10 to 50 ms later.
   Mox::Loop::TurnEnd published( loop, [&] {
      if ( writer->changeSet()->empty() && writer->reviewChangeSet()->empty() )
         loop.stop();
   } );
   loop.run();
}
