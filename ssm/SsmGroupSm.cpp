#include "ssm/SsmGroupSm.h"

#include "platform/acl/RulesNotifiee.h"
#include "platform/pim/GroupTrie.h"

namespace Routing::Pim::SparseMode {

MOX_TRACE_FACILITY( facility, "Pimsm::SsmGroupSm" )

MOX_ENTITY_TYPE( SsmGroupSm, PIMSM_SSM_GROUP_SM_ATTRIBUTES )

// Any of these may be destroyed inside its own call. So each does its work last, or
// does not use itself afterwards.
class SsmGroupSm::MoxConfig : public Config::NotifieeConst {
 public:
   explicit MoxConfig( SsmGroupSm& sm ) : sm_( sm ) {
      notifierIs( sm.config().get() );
   }
   void onSsmFilter() override {
      Mox::Pin pin( &sm_ );
      sm_.handleSsmFilter();
   }

 private:
   SsmGroupSm& sm_;
};

class SsmGroupSm::MoxAclIpConfig : public Acl::AclTypeConfig::NotifieeConst {
 public:
   explicit MoxAclIpConfig( SsmGroupSm& sm ) : sm_( sm ) {
      notifierIs( sm.aclIpConfig().get() );
   }
   void onAcl( const Mox::String& name ) override {
      SsmGroupSm& sm = sm_;
      Mox::Pin pin( &sm );
      sm.handleAclConfig( name );
      sm.watchAcl( name );
   }

 private:
   SsmGroupSm& sm_;
};

class SsmGroupSm::MoxAclConfig : public Acl::RulesNotifiee {
 public:
   MoxAclConfig( SsmGroupSm& sm, const Acl::AclConfig& list )
      : RulesNotifiee( list ), sm_( sm ) {}

 private:
   void onRules() override {
      MOX_TRACE( facility, 8, "handleCurrCfg" );
      if ( notifier() == nullptr ) return;
      Mox::Pin pin( &sm_ );
      if ( notifier()->name() == sm_.ssmFilter() ) sm_.handleAllRules( notifier() );
   }

   SsmGroupSm& sm_;
};

SsmGroupSm::SsmGroupSm( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
                        SsmGroupInfoPtr ssmGroupInfo )
   : config_( std::move( config ) ),
     aclIpConfig_( std::move( aclIpConfig ) ),
     ssmGroupInfo_( std::move( ssmGroupInfo ) ) {
   MOX_ASSERT( ssmGroupInfo_ != nullptr );
   moxConfig_ = std::make_unique<MoxConfig>( *this );
   moxAclIpConfig_ = std::make_unique<MoxAclIpConfig>( *this );
   handleInitialized();
   if ( aclIpConfig_ != nullptr ) {
      for ( const auto& name : Mox::keysOf( aclIpConfig_->acl() ) )
         watchAcl( name );
   }
}

SsmGroupSm::~SsmGroupSm() = default;

void SsmGroupSm::configDel() {
   moxConfig_.reset();
   config_.reset();
}

void SsmGroupSm::aclIpConfigDel() {
   moxAclIpConfig_.reset();
   aclConfigDelAll();
   aclIpConfig_.reset();
}

const SsmGroupSm::MoxAclConfig* SsmGroupSm::aclConfig(
   const Mox::String& name ) const {
   auto found = aclConfig_.find( name );
   return found == aclConfig_.end() ? nullptr : found->second.get();
}

// Deliberately with the quote at the end of the text.
void SsmGroupSm::aclConfigIs( const Acl::AclConfig* list ) {
   MOX_ASSERT_TEXT(
      list != nullptr,
      "null _aclConfig parameter to mutator for "
      "Routing::Pim::SparseMode::SsmGroupSm::aclConfig not allowed\"" );
   const MoxAclConfig* watched = aclConfig( list->name() );
   if ( watched != nullptr && watched->notifier() == list ) return;
   aclConfig_[list->name()] = std::make_unique<MoxAclConfig>( *this, *list );
}

void SsmGroupSm::aclConfigDel( const Mox::String& name ) {
   aclConfig_.erase( name );
}

void SsmGroupSm::aclConfigDelAll() {
   aclConfig_.clear();
}

void SsmGroupSm::watchAcl( const Mox::String& name ) {
   if ( const Acl::AclConfig* list = acl( name ) ) {
      aclConfigIs( list );
   } else {
      aclConfigDel( name );
   }
}

void SsmGroupSm::handleInitialized() {
   MOX_TRACE( facility, 8,
              "void Routing::Pim::SparseMode::SsmGroupSm::handleInitialized()" );
   if ( !ssmGroupInfo()->initialized() ) ssmGroupInfo()->handleInitialized();
   initializedIs( true );
   handleSsmFilter();
}

// With ".no-ssm-range" the trie is deliberately left as it is: nothing consults it.
void SsmGroupSm::handleSsmFilter() {
   MOX_TRACE( facility, 8,
              "void Routing::Pim::SparseMode::SsmGroupSm::handleSsmFilter()" );
   if ( ssmFilter() == noSsmRange ) {
      ssmGroupInfo()->ssmConfigChangedInc( 1 );
      return;
   }
   handleAllRules( acl( ssmFilter() ) );
}

void SsmGroupSm::handleAclConfig() {
   if ( ssmFilter() == noSsmRange ) {
      MOX_TRACE( facility, 8, "handleAclConfig() not interested" );
      return;
   }
   handleAclConfig( ssmFilter() );
}

void SsmGroupSm::handleAclConfig( const Mox::String& name ) {
   if ( name == ssmFilter() ) return handleAllRules( acl( name ) );
   MOX_TRACE( facility, 8, "handleAclConfig() not interested in " << name );
}

void SsmGroupSm::handleAllRules( const Acl::AclConfig* acl ) {
   MOX_TRACE( facility, 8, "handleAllRules" );
   if ( !ssmGroupInfo()->initialized() || ssmGroupInfo()->trie() == nullptr ) {
      MOX_TRACE( facility, 8, "handleAllRules not initialized " );
      return;
   }
   TrieGen& trie = *ssmGroupInfo()->trie();
   clearTrie( trie, facility );
   if ( acl != nullptr ) {
      for ( const Vantu::IpGenPrefix& prefix :
            permittedGroups( *acl, ssmGroupInfo()->addressFamily(), facility ) ) {
         trie.routeIs( prefix, true );
      }
   } else {
      MOX_TRACE( facility, 8,
                 "handleAllRules acl deletion, update ssmConfigChanged " );
   }
   ssmGroupInfo()->ssmConfigChangedInc( 1 );
}

Mox::Ptr<SsmGroupSm> ssmGroupSmFactory( ConfigPtr config,
                                        AclTypeConfigPtr aclIpConfig,
                                        SsmGroupInfoPtr ssmGroupInfo ) {
   return Mox::newEntity<SsmGroupSm>( std::move( config ), std::move( aclIpConfig ),
                                      std::move( ssmGroupInfo ) );
}

Mox::Ptr<SsmGroupSm> SsmGroupSmIs( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
                                   SsmGroupInfoPtr ssmGroupInfo ) {
   return ssmGroupSmFactory( std::move( config ), std::move( aclIpConfig ),
                             std::move( ssmGroupInfo ) );
}

}
