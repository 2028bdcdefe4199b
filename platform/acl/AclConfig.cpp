#include "platform/acl/AclConfig.h"

namespace Acl {

MOX_ENTITY_TYPE( AclSubConfig, PIMSM_ACL_SUB_CONFIG_ATTRIBUTES )
MOX_ENTITY_TYPE( AclConfig, PIMSM_ACL_CONFIG_ATTRIBUTES )
MOX_ENTITY_TYPE( AclTypeConfig, PIMSM_ACL_TYPE_CONFIG_ATTRIBUTES )

AclConfig::AclConfig( const Mox::String& name ) : name_( name ) {
   if ( name.empty() ) {
      throw Mox::RangeError( "an access list without a name not allowed" );
   }
}

void AclConfig::rulesIs( const AclRules& rules ) {
   if ( currCfg() != nullptr && currCfg()->rules() == rules ) return;
   currCfgIs( Mox::newEntity<AclSubConfig>( rules ) );
}

Mox::Ptr<AclConfig> AclTypeConfig::aclIs( const Mox::String& name,
                                          const AclRules& rules ) {
   if ( Mox::Ptr<AclConfig> existing = acl( name ) ) {
      existing->rulesIs( rules );
      return existing;
   }
   Mox::Ptr<AclConfig> made = newAcl( name );
   made->rulesIs( rules );
   return aclAdd( made );
}

}
