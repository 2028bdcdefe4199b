// The group ranges of the agent's published configuration: the RPs, and the
// source-specific groups. A copy of the moment; event-loop thread only.
#pragma once

#include <optional>

#include "platform/trie/PrefixMap.h"
#include "published/Status.h"
#include "ssm/SsmGroupSm.h"

namespace Published {

class PIMSM_API GroupRanges {
 public:
   // The tables may be missing: then all answers are unknown.
   GroupRanges( Vantu::AddressFamily family, const FamilyStatus& tables );

   // The configured RP; nothing when there is none or it is unknown.
   std::optional<Vantu::IpGenAddr> rp( const Vantu::IpGenAddr& group ) const;
   // Is this router the group's RP?
   bool ownRp( const Vantu::IpGenAddr& group ) const;

   // Is the group source-specific (RFC 4607)? Nothing when it is unknown.
   std::optional<bool> sourceSpecific( const Vantu::IpGenAddr& group ) const;

 private:
   Routing::PrefixMap<Rp> rps_;
   // Null when the lists are unknown.
   Mox::Ptr<Routing::Pim::SparseMode::Config> config_;
   Mox::Ptr<Routing::Pim::SparseMode::SsmGroupInfo> ssm_;
};

}
