// Keeps the fast-reroute filter in step with the configuration.
//
//   watches  config's frrFilter, the collection of access lists, every list's current
//            sub-configuration and the rules in it
//   writes   the trie of frrFilterStatus, cleared and loaded whole; changeCount, one
//            step a rebuild, and deliberately one more when frrFilter changes
//   ignores  lists that frrFilter does not name (traced)
//
// Without a list, or with one that has no rules yet, no group is enabled. Holds
// references to its arguments. Observers of changeCount may release this reactor,
// and change the configuration. Event-loop thread only.
#pragma once

#include <map>
#include <memory>

#include "frr/FrrFilterStatus.h"
#include "platform/acl/AclConfig.h"
#include "platform/pim/SparseModeConfig.h"

namespace Routing::Pim::SparseMode {

using ConfigPtr = Mox::Ptr<const Config>;
using AclTypeConfigPtr = Mox::Ptr<const Acl::AclTypeConfig>;
using FrrFilterStatusPtr = Mox::Ptr<FrrFilterStatus>;

// clang-format off
#define PIMSM_FRR_FILTER_SM_ATTRIBUTES( A ) \
   A( Fixed, config,          Config,          ConfigPtr,          ,      "null: as if frrFilter were empty" ) \
   A( Fixed, aclIpConfig,     AclIpConfig,     AclTypeConfigPtr,   ,      "null: the filter stays as it is" ) \
   A( Fixed, frrFilterStatus, FrrFilterStatus, FrrFilterStatusPtr, ,      "maintained here" ) \
   A( Value, initialized,     Initialized,     bool,               false, "handleInitialized has begun" )
// clang-format on

class PIMSM_API FrrFilterSm : public Mox::Entity {
 public:
   class MoxAclConfig;
   using AclConfigReactors = std::map<Mox::String, std::unique_ptr<MoxAclConfig>>;

   MOX_ENTITY( FrrFilterSm, PIMSM_FRR_FILTER_SM_ATTRIBUTES )

   // Runs handleInitialized(), then begins to watch each list.
   // REQUIRES: frrFilterStatus not null.
   FrrFilterSm( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
                FrrFilterStatusPtr frrFilterStatus );

   // The watched lists by name; null when the list is not watched.
   const AclConfigReactors& aclConfig() const { return aclConfig_; }
   const MoxAclConfig* aclConfig( const Mox::String& name ) const;
   // Watches the list, in place of a former one of that name. Null is fatal.
   void aclConfigIs( const Acl::AclConfig* list );
   void aclConfigDel( const Mox::String& name );
   void aclConfigDelAll();

   void handleInitialized();
   void handleFrrFilter();
   void handleAclConfig();
   void handleAclConfig( const Mox::String& name );
   // Rebuilds the filter from the list; null leaves it empty.
   void handleAllRules( const Acl::AclConfig* aclConfig );

 protected:
   ~FrrFilterSm() override;

 private:
   class MoxConfig;
   class MoxAclIpConfig;

   Mox::String frrFilter() const { return config() ? config()->frrFilter() : ""; }
   void watchAcl( const Mox::String& name );

   std::unique_ptr<MoxConfig> moxConfig_;
   std::unique_ptr<MoxAclIpConfig> moxAclIpConfig_;
   AclConfigReactors aclConfig_;
};

PIMSM_API Mox::Ptr<FrrFilterSm> frrFilterSmFactory(
   ConfigPtr config, AclTypeConfigPtr aclIpConfig,
   FrrFilterStatusPtr frrFilterStatus );
PIMSM_API Mox::Ptr<FrrFilterSm> FrrFilterSmIs( ConfigPtr config,
                                               AclTypeConfigPtr aclIpConfig,
                                               FrrFilterStatusPtr frrFilterStatus );

}
