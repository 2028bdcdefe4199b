// The rules of one access list, as a value: they are only replaced together.
#pragma once

#include <vector>

#include "platform/base/Enum.h"
#include "platform/base/Record.h"
#include "platform/net/IpGenPrefix.h"

namespace Acl {

#define PIMSM_ACL_ACTIONS( V ) V( deny ) V( permit )
MOX_ENUM( AclAction, PIMSM_ACL_ACTIONS )
MOX_ENUM_TEXT( AclAction, PIMSM_ACL_ACTIONS )

#define PIMSM_ACL_TYPES( V ) V( standard ) V( extended )
MOX_ENUM( AclType, PIMSM_ACL_TYPES )
MOX_ENUM_TEXT( AclType, PIMSM_ACL_TYPES )

// clang-format off
#define PIMSM_ACL_RULE( FIELD ) \
   FIELD( uint32_t,           sequence,    0 ) /* place in the list */ \
   FIELD( AclAction,          action,      deny ) \
   FIELD( Vantu::IpGenPrefix, source,      {} ) /* the default prefix: any */ \
   FIELD( Vantu::IpGenPrefix, destination, {} ) /* the default prefix: any */
// clang-format on

// A rule of a standard list has one prefix, in `source`. Where the list filters
// groups, that prefix is the group; in an extended list the group is `destination`.
struct AclRule {
   PIMSM_ACL_RULE( MOX_RECORD_FIELD )
   bool operator==( const AclRule& ) const = default;
};
MOX_RECORD_TEXT( AclRule, "Acl::AclRule", PIMSM_ACL_RULE )
MOX_STREAM_TEXT( AclRule )

// In ascending order of sequence number, whatever order they were given in. The
// first rule that matches decides; an address that no rule matches is denied. IPv4
// or IPv6, never both.
class PIMSM_API AclRules {
 public:
   // A standard list that denies everything.
   AclRules() = default;
   // Throws RangeError for a sequence number given twice, prefixes of two families,
   // or a destination in a standard list; the text names the rule.
   AclRules( AclType type, std::vector<AclRule> rules );

   AclType type() const { return type_; }
   const std::vector<AclRule>& rules() const { return rules_; }

   bool operator==( const AclRules& ) const = default;

 private:
   AclType type_ = standard;
   std::vector<AclRule> rules_;
};

// "Value('Acl::AclRules', ** {'type': standard, 'rules': [<rule>, ...]})".
PIMSM_API Mox::String valueToStrep( const AclRules& rules );
// Also throws RangeError for rules that the constructor refuses.
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                AclRules& out );
MOX_STREAM_TEXT( AclRules )

}
