// A status sees its PIM interfaces read-only.
#include "model/Status.h"

namespace Routing::Pim::SparseMode::Test {

bool look( Status& status, Vantu::IntfId intf ) {
#ifdef BAD
   return status.pimStatus()->intfIs( intf ) != nullptr;
#else
   return status.pimStatus()->intf( intf ) != nullptr;
#endif
}

}
