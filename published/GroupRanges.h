// What the agent's configuration, as published, says of groups: their RP, and which are
// source-specific. A copy of the moment; event-loop thread only.
#pragma once

#include <optional>
#include <vector>

#include "published/Status.h"
#include "ssm/SsmGroupSm.h"

namespace Published {

class PIMSM_API GroupRanges {
 public:
   // The tables may be missing: then nothing is known.
   GroupRanges( Vantu::AddressFamily family, const FamilyStatus& tables );

   // The configured RP; nothing where there is none, or it is not known.
   std::optional<Vantu::IpGenAddr> rp( const Vantu::IpGenAddr& group ) const;
   // Is it this router?
   bool ownRp( const Vantu::IpGenAddr& group ) const;

   // Is the group source-specific (RFC 4607)? Nothing where it is not known.
   std::optional<bool> sourceSpecific( const Vantu::IpGenAddr& group ) const;

 private:
   // Null: none.
   const Rp* longest( const Vantu::IpGenAddr& group ) const;

   std::vector<Rp> rps_;
   // Null where the lists are not known.
   Mox::Ptr<Routing::Pim::SparseMode::Config> config_;
   Mox::Ptr<Routing::Pim::SparseMode::SsmGroupInfo> ssm_;
};

}
