#include "model/IntfCollection.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( IntfCollection, PIMSM_INTF_COLLECTION_ATTRIBUTES )

MOX_FACTORY( IntfCollection,
             []( Mox::StringView ) { return intfCollectionFactory(); } )

Mox::Ptr<IntfCollection> intfCollectionFactory() {
   return Mox::newEntity<IntfCollection>();
}

}
