// The group ranges configured in one VRF and family: the source-specific groups,
// and the groups with fast reroute.
//
// Holds the library's configuration entities and the reactors on them. Event-loop
// thread; the configuration is copied.
#pragma once

#include <functional>

#include "engine/Config.h"
#include "engine/Refusal.h"
#include "frr/FrrFilterSm.h"
#include "ssm/SsmGroupSm.h"
#include "ssm/SsmJoinPruneFilter.h"

namespace Router {

class PIMSM_API GroupPolicy {
 public:
   GroupPolicy( Vantu::AddressFamily family, const VrfConfig& config );
   ~GroupPolicy();
   GroupPolicy( const GroupPolicy& ) = delete;
   GroupPolicy& operator=( const GroupPolicy& ) = delete;

   // Updates the lists first, then the settings that name them.
   void configIs( const VrfConfig& config );

   // Is the group source-specific (RFC 4607)? Such a group gets no shared-tree
   // state.
   bool sourceSpecific( const Vantu::IpGenAddr& group ) const {
      return filter_->deny( group );
   }
   // The reason why the group has no shared-tree state: it is source-specific, or its
   // address names no RP that is valid and allowed (RFC 3956). Empty: it may have it.
   std::optional<Refusal> refusalOfShared( const Vantu::IpGenAddr& group ) const;
   bool frrEnabled( const Vantu::IpGenAddr& source,
                    const Vantu::IpGenAddr& group ) const;

 private:
   Vantu::AddressFamily family_;
   bool embeddedRps_ = true;
   Mox::Ptr<Routing::Pim::SparseMode::Config> config_;
   Mox::Ptr<Acl::AclTypeConfig> lists_;
   Mox::Ptr<Routing::Pim::SparseMode::SsmGroupInfo> ssm_;
   Mox::Ptr<Routing::Pim::SparseMode::SsmGroupSm> ssmSm_;
   Mox::Ptr<Routing::Pim::JoinPruneFilter> filter_;
   Mox::Ptr<Routing::Pim::SparseMode::FrrFilterStatus> frr_;
   Mox::Ptr<Routing::Pim::SparseMode::FrrFilterSm> frrSm_;
};

}
