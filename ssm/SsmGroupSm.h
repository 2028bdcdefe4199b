// Keeps the configured SSM range in step with the configuration.
//
//   watches  config's ssmFilter, the collection of access lists, every list's current
//            sub-configuration and the rules in it
//   writes   the trie of ssmGroupInfo, cleared and loaded whole; ssmConfigChanged,
//            one step a rebuild and one when ssmFilter turns to ".no-ssm-range"
//   ignores  lists that ssmFilter does not name (traced)
//
// Holds references to its arguments. Observers of ssmConfigChanged may release this
// reactor, and change the configuration. Event-loop thread only.
#pragma once

#include <map>
#include <memory>

#include "platform/acl/AclConfig.h"
#include "ssm/SsmGroupInfo.h"

namespace Routing::Pim::SparseMode {

using ConfigPtr = Mox::Ptr<const Config>;
using AclTypeConfigPtr = Mox::Ptr<const Acl::AclTypeConfig>;
using SsmGroupInfoPtr = Mox::Ptr<SsmGroupInfo>;

// clang-format off
#define PIMSM_SSM_GROUP_SM_ATTRIBUTES( A ) \
   A( Fixed, config,       Config,       ConfigPtr,        ,      "null: as if ssmFilter were empty" ) \
   A( Fixed, aclIpConfig,  AclIpConfig,  AclTypeConfigPtr, ,      "null: there are no lists" ) \
   A( Fixed, ssmGroupInfo, SsmGroupInfo, SsmGroupInfoPtr,  ,      "maintained here" ) \
   A( Value, initialized,  Initialized,  bool,             false, "handleInitialized has run" )
// clang-format on

class PIMSM_API SsmGroupSm : public Mox::Entity {
 public:
   class MoxAclConfig;
   using AclConfigReactors = std::map<Mox::String, std::unique_ptr<MoxAclConfig>>;

   MOX_ENTITY( SsmGroupSm, PIMSM_SSM_GROUP_SM_ATTRIBUTES )

   // Runs handleInitialized(), then begins to watch each list.
   // REQUIRES: ssmGroupInfo not null.
   SsmGroupSm( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
               SsmGroupInfoPtr ssmGroupInfo );

   // Stop watching and release the configuration; the range stays as it is.
   // aclIpConfigDel() forgets the lists as well.
   void configDel();
   void aclIpConfigDel();

   // The watched lists by name; null when the list is not watched.
   const AclConfigReactors& aclConfig() const { return aclConfig_; }
   const MoxAclConfig* aclConfig( const Mox::String& name ) const;
   // Watches the list, in place of a former one of that name. Null is fatal.
   void aclConfigIs( const Acl::AclConfig* list );
   void aclConfigDel( const Mox::String& name );
   void aclConfigDelAll();

   void handleInitialized();
   void handleSsmFilter();
   void handleAclConfig();
   void handleAclConfig( const Mox::String& name );
   // Rebuilds the range from the list; null leaves it empty.
   void handleAllRules( const Acl::AclConfig* acl );

 protected:
   ~SsmGroupSm() override;

 private:
   class MoxConfig;
   class MoxAclIpConfig;

   Mox::String ssmFilter() const { return config() ? config()->ssmFilter() : ""; }
   const Acl::AclConfig* acl( const Mox::String& name ) const {
      return aclIpConfig() ? aclIpConfig()->acl( name ) : nullptr;
   }
   void watchAcl( const Mox::String& name );

   std::unique_ptr<MoxConfig> moxConfig_;
   std::unique_ptr<MoxAclIpConfig> moxAclIpConfig_;
   AclConfigReactors aclConfig_;
};

PIMSM_API Mox::Ptr<SsmGroupSm> ssmGroupSmFactory( ConfigPtr config,
                                                  AclTypeConfigPtr aclIpConfig,
                                                  SsmGroupInfoPtr ssmGroupInfo );
PIMSM_API Mox::Ptr<SsmGroupSm> SsmGroupSmIs( ConfigPtr config,
                                             AclTypeConfigPtr aclIpConfig,
                                             SsmGroupInfoPtr ssmGroupInfo );

}
