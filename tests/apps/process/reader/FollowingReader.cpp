// A reader of the IPv4 tables of the VRF "default", written as a user would: at
// each end of a turn in which its model changed it prints the whole model as one
// line. Waits by doorbell only. usage: following_reader ROOT
#include <iostream>
#include <set>

#include "export/Conversion.h"
#include "export/RouteBraneRestartSm.h"
#include "platform/loop/RealClock.h"

namespace Sm = Routing::Pim::SparseMode;

namespace {

// Every record as the tables hold it, in a fixed order.
std::string modelText( const Sm::Status& model ) {
   std::set<std::string> records;
   for ( const Sm::Route& route : model.route() ) {
      records.insert(
         valueToStrep( Sm::Brane::doGetBraneRouteFromRoute( route ) ) );
      for ( const Sm::Intf& intf : route.routeIntf() ) {
         records.insert( valueToStrep(
            Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ) ) );
      }
   }
   std::string out = "routes " + std::to_string( model.route().size() ) + ":";
   for ( const std::string& record : records ) out += ' ' + record;
   return out;
}

}

int main( int argc, char** argv ) {
   if ( argc != 2 ) return 2;
   L3::VrfName vrf( "default" );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop, argv[1] );
   auto model = Sm::statusFactory( vrf );
   auto tables = Sm::Brane::Status::mountInDependencyOrder(
      manager, Sm::Brane::Status::mountPath( Vantu::AddressFamily::ipv4, vrf ),
      Brane::tableReader, nullptr );
   auto reader = Sm::Brane::routeBraneReaderSmFactory( model, tables );
   auto restart = Sm::Brane::routeBraneRestartSmFactory(
      model, tables, Brane::tableReader, &clock );
   std::string last;
   Mox::Loop::TurnEnd print( loop, [&] {
      if ( !model->initialized() ) return;
      std::string text = modelText( *model );
      if ( text == last ) return;
      last = text;
      std::cout << text << std::endl;
   } );
   loop.run();
}
