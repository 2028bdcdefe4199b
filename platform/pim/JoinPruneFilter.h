// Decides for which groups shared-tree joins and prunes are refused.
//
// The owner of the decision implements it; join/prune processing calls it.
// Event-loop thread only.
#pragma once

#include "platform/base/Ptr.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim {

class PIMSM_API JoinPruneFilter : public Mox::RefCounted<JoinPruneFilter> {
 public:
   virtual ~JoinPruneFilter() = default;

   // True when a join or prune for the group is to be refused.
   virtual bool deny( const Vantu::IpGenAddr& group ) const = 0;
};

}
