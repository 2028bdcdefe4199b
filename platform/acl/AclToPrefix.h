// The groups that an access list permits, as the fewest prefixes.
//
// The first rule that matches a group decides; a group that no rule matches is
// denied. The result is clipped to the converter's group range, the multicast range
// for AclToPrefix::multicast(). Rules of the other family match nothing.
//
// A group's prefix stands for all sources, but an extended rule may name only some.
// By default such a rule is skipped, whether it permits or denies. So a group is
// permitted where the first rule for every source permits it. With `ignoreSource`
// the rule counts for its groups as if it were for every source. A source of length
// 0 is every source. Standard lists have no source: their prefix is the group.
//
// Costs O(n log n) comparisons of n rules, plus the prefixes made: rules are
// painted from the last to the first, each over what follows it, so that each
// interval is added, cut and swallowed a bounded number of times; going from the
// first rule on and subtracting the decided groups from each rule would be
// quadratic.
#pragma once

#include <boost/icl/interval_set.hpp>

#include "platform/acl/AclConfig.h"
#include "platform/net/AddressNumber.h"

namespace Acl {

// Family is Vantu::Ip4Number or Vantu::Ip6Number.
template <class Family>
class GroupConverter {
 public:
   using Number = typename Family::Number;
   using Set = boost::icl::interval_set<Number>;
   using Interval = typename Set::interval_type;

   // `groups` is the range that the result is clipped to, `all` the range that a
   // rule for any group matches.
   GroupConverter( Set groups, Set all );

   // Adds the permitted groups' prefixes to `out`. A null list, or one without a
   // current sub-configuration, adds none.
   void handleAcl( const AclConfig* acl, Vantu::IpGenPrefixSet& out,
                   bool ignoreSource ) const;

 private:
   void paint( const AclRule& rule, const Vantu::IpGenPrefix& group,
               Set& permitted ) const;

   Set groups_;
   Set all_;
};

extern template class PIMSM_API GroupConverter<Vantu::Ip4Number>;
extern template class PIMSM_API GroupConverter<Vantu::Ip6Number>;

}

namespace AclPrefix {

class PIMSM_API AclToPrefix : public Acl::GroupConverter<Vantu::Ip4Number> {
 public:
   using GroupConverter::GroupConverter;

   // [224.0.0.0, 240.0.0.0) of [0.0.0.0, 255.255.255.255].
   static AclToPrefix multicast();
};

}

namespace AclIp6Prefix {

class PIMSM_API AclToIp6Prefix : public Acl::GroupConverter<Vantu::Ip6Number> {
 public:
   using GroupConverter::GroupConverter;

   // ff00::/8 of ::/0.
   static AclToIp6Prefix multicast();
};

}
