// A mutator takes values, keys and records of its attribute's type: no text for a
// flag and no fraction for a count, though the language would convert them.
#include "model/Status.h"
#include "published/Status.h"

namespace Routing::Pim::SparseMode::Test {

void change( Status& status, Route& route, Published::FamilyStatus& tables ) {
#ifndef BAD
   route.rpTreeIs( route.wildCard() );
   status.maxRoutesIs( 7 );
   route.umhIs()->rpfIs( Rpf() );
   status.pimStatusIs( nullptr );
   route.routeIntfIs( Vantu::IntfId( "eth0" ) );
   tables.interfaceIs( Published::Interface() );
#elif BAD == 1
   route.rpTreeIs( "yes" );
#elif BAD == 2
   status.maxRoutesIs( 7.5 );
#elif BAD == 3
   route.umhIs()->rpfIs( Vantu::IpGenAddr( "192.0.2.1" ) );
#elif BAD == 4
   status.pimStatusIs( Mox::Ptr<const Status>( &status ) );
#elif BAD == 5
   route.routeIntfIs( "eth0" );
#elif BAD == 6
   tables.interfaceIs( Published::Neighbor() );
#endif
}

}
