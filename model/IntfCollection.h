// A free-standing set of interfaces, built by a caller and passed to route macros.
#pragma once

#include <unordered_set>

#include "platform/entity/Attribute.h"
#include "platform/net/IntfId.h"

namespace Routing::Pim::SparseMode {

using IntfSet = std::unordered_set<Vantu::IntfId>;

// clang-format off
#define PIMSM_INTF_COLLECTION_ATTRIBUTES( A ) \
   A( Set, intf, Intf, IntfSet, , "for example the fast-failover interfaces" )
// clang-format on

class PIMSM_API IntfCollection : public Mox::Entity {
 public:
   MOX_ENTITY( IntfCollection, PIMSM_INTF_COLLECTION_ATTRIBUTES )

 protected:
   ~IntfCollection() override = default;
};

PIMSM_API Mox::Ptr<IntfCollection> intfCollectionFactory();

}
