// Refuses joins and prunes for source-specific groups, and only those.
#pragma once

#include "platform/pim/JoinPruneFilter.h"
#include "ssm/SsmGroupInfo.h"

namespace Routing::Pim::SparseMode {

class PIMSM_API SsmJoinPruneFilter : public JoinPruneFilter {
 public:
   // REQUIRES: nothing null. Holds references to both.
   SsmJoinPruneFilter( Mox::Ptr<const Config> config,
                       Mox::Ptr<const SsmGroupInfo> ssmGroupInfo );
   ~SsmJoinPruneFilter() override;

   // Throws the exceptions of SsmGroupInfo::ssmGroup.
   bool deny( const Vantu::IpGenAddr& group ) const override {
      return ssmGroupInfo_->ssmGroup( group, *config_ );
   }

 private:
   Mox::Ptr<const Config> config_;
   Mox::Ptr<const SsmGroupInfo> ssmGroupInfo_;
};

}
