// A constructor argument has no mutator.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

void change( Status& status ) {
#ifdef BAD
   status.vrfNameIs( L3::VrfName( "red" ) );
#else
   status.maxRoutesIs( 1 );
#endif
}

}
