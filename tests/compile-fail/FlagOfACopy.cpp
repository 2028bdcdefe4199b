// A reader returns a copy: a flag set in it would be lost.
#include "model/Route.h"

namespace Routing::Pim::SparseMode::Test {

void markRpChanged( Route& route ) {
#ifdef BAD
   route.changeFlags().rpChangedIs( true );
#else
   route.changeFlagsInPlace().rpChangedIs( true );
   route.changeFlagsDoEmbeddedWriteConstraints();
#endif
}

}
