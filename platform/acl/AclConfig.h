// Access lists as configured: the lists of one kind of filter by name, and in each
// list its current sub-configuration, which holds the rules.
//
// Written by the code that reads the configuration. A list's rules are replaced as
// a whole, with one notification: `currCfg` when another sub-configuration takes
// the former one's place, as by the list's rulesIs(), or `rules` when the current
// one gets other rules. Event-loop thread only.
#pragma once

#include "platform/acl/AclRules.h"
#include "platform/entity/Attribute.h"

namespace Acl {

// clang-format off
#define PIMSM_ACL_SUB_CONFIG_ATTRIBUTES( A ) \
   A( Value, rules, Rules, AclRules, {}, "all of them" )

#define PIMSM_ACL_CONFIG_ATTRIBUTES( A ) \
   A( Fixed, name,    Name,    Mox::String, ,  "key; not empty" ) \
   A( View,  currCfg, CurrCfg, AclSubConfig, , "in force; null: the list has no rules yet" )

#define PIMSM_ACL_TYPE_CONFIG_ATTRIBUTES( A ) \
   A( Map, acl, Acl, AclConfigMap, , "the lists" )
// clang-format on

class PIMSM_API AclSubConfig : public Mox::Entity {
 public:
   MOX_ENTITY( AclSubConfig, PIMSM_ACL_SUB_CONFIG_ATTRIBUTES )

   explicit AclSubConfig( AclRules rules = {} ) : rules_( std::move( rules ) ) {}

 protected:
   ~AclSubConfig() override = default;
};

class PIMSM_API AclConfig : public Mox::Entity {
 public:
   MOX_ENTITY( AclConfig, PIMSM_ACL_CONFIG_ATTRIBUTES )

   // Throws RangeError for the empty name, which elsewhere means no list.
   explicit AclConfig( const Mox::String& name );
   const Mox::String& mapKey() const { return name_; }

   // Puts a new sub-configuration with these rules in force; nothing happens when
   // the current one holds equal rules.
   void rulesIs( const AclRules& rules );

 protected:
   ~AclConfig() override = default;
};

using AclConfigMap = Mox::OrderedMap<Mox::String, AclConfig>;

class PIMSM_API AclTypeConfig : public Mox::Entity {
 public:
   MOX_ENTITY( AclTypeConfig, PIMSM_ACL_TYPE_CONFIG_ATTRIBUTES )

   // Gives the list these rules: a new list has them before anybody is notified of
   // it, an existing one gets them by its rulesIs(). Throws RangeError for the
   // empty name.
   Mox::Ptr<AclConfig> aclIs( const Mox::String& name, const AclRules& rules );

 protected:
   ~AclTypeConfig() override = default;

 private:
   Mox::Ptr<AclConfig> newAcl( const Mox::String& name ) {
      return new AclConfig( name );
   }
};

}
