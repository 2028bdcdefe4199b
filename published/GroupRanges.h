// The group ranges of the agent's published configuration: the RPs, and the
// source-specific groups. A copy of the moment; event-loop thread only.
#pragma once

#include <optional>
#include <set>

#include "platform/trie/PrefixMap.h"
#include "published/Status.h"
#include "ssm/SsmGroupSm.h"

namespace Published {

class PIMSM_API GroupRanges {
 public:
   // The tables may be missing: then all answers are unknown.
   GroupRanges( Vantu::AddressFamily family, const FamilyStatus& tables );

   // What gives a group its RP.
   struct Mapping {
      enum Rule { unknown, none, sourceSpecific, embedded, configured };
      Rule rule = unknown;
      Vantu::IpGenAddr rp = {};       // of the last two
      Vantu::IpGenPrefix range = {};  // of `configured`
      bool own = false;               // the RP is this router
   };
   // A source-specific group needs no RP; an address that carries one (RFC 3956) has
   // that or none; of configured ranges the longest counts. Where it is not known
   // which groups are source-specific, the RP is told.
   Mapping mapping( const Vantu::IpGenAddr& group ) const;

   // The RP, be the group source-specific or not; nothing when there is none or it is
   // unknown.
   std::optional<Vantu::IpGenAddr> rp( const Vantu::IpGenAddr& group ) const;
   // Is this router the group's RP?
   bool ownRp( const Vantu::IpGenAddr& group ) const;

   // Is the group source-specific (RFC 4607)? Nothing when it is unknown.
   std::optional<bool> sourceSpecific( const Vantu::IpGenAddr& group ) const;
   // What the access list permits that says so, as the fewest prefixes; nothing where no
   // list says it, or it is unknown.
   const std::optional<Vantu::IpGenPrefixSet>& sourceSpecificList() const {
      return listed_;
   }

 private:
   Mapping rpMapping( const Vantu::IpGenAddr& group ) const;

   Routing::PrefixMap<Rp> rps_;
   bool rpsKnown_ = false;
   std::optional<bool> embeds_;  // do addresses carry RPs?
   std::set<Vantu::IpGenAddr> own_;
   std::optional<Vantu::IpGenPrefixSet> listed_;
   // Null when the lists are unknown.
   Mox::Ptr<Routing::Pim::SparseMode::Config> config_;
   Mox::Ptr<Routing::Pim::SparseMode::SsmGroupInfo> ssm_;
};

}
