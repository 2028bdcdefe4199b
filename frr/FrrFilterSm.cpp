#include "frr/FrrFilterSm.h"

#include "platform/acl/RulesNotifiee.h"
#include "platform/pim/GroupTrie.h"

namespace Routing::Pim::SparseMode {

MOX_TRACE_FACILITY( facility, "Pimsm::FrrFilterSm" )

MOX_ENTITY_TYPE( FrrFilterSm, PIMSM_FRR_FILTER_SM_ATTRIBUTES )

// The beginning of a handler's traces.
#define FRR_HANDLER( signature ) \
   "void Routing::Pim::SparseMode::FrrFilterSm::" signature

// Any of these may be destroyed inside its own call. So each does its work last, or
// does not use itself afterwards.
class FrrFilterSm::MoxConfig : public Config::NotifieeConst {
 public:
   explicit MoxConfig( FrrFilterSm& sm ) : sm_( sm ) {
      notifierIs( sm.config().get() );
   }
   void onFrrFilter() override {
      Mox::Pin pin( &sm_ );
      sm_.handleFrrFilter();
   }

 private:
   FrrFilterSm& sm_;
};

class FrrFilterSm::MoxAclIpConfig : public Acl::AclTypeConfig::NotifieeConst {
 public:
   explicit MoxAclIpConfig( FrrFilterSm& sm ) : sm_( sm ) {
      notifierIs( sm.aclIpConfig().get() );
   }
   void onAcl( const Mox::String& name ) override {
      Mox::Pin pin( &sm_ );
      sm_.handleAclConfig( name );
      sm_.watchAcl( name );
   }

 private:
   FrrFilterSm& sm_;
};

class FrrFilterSm::MoxAclConfig : public Acl::RulesNotifiee {
 public:
   MoxAclConfig( FrrFilterSm& sm, const Acl::AclConfig& list )
      : RulesNotifiee( list ), sm_( sm ) {}

 private:
   void onRules() override {
      if ( notifier() == nullptr ) return;
      MOX_TRACE( facility, 8,
                 FRR_HANDLER( "MoxAclConfig::handleCurrCfg()" )
                    << ' ' << notifier()->name() );
      Mox::Pin pin( &sm_ );
      if ( notifier()->name() == sm_.frrFilter() ) sm_.handleAllRules( notifier() );
   }

   FrrFilterSm& sm_;
};

Mox::Ptr<FrrFilterSm> frrFilterSmFactory( ConfigPtr config,
                                          AclTypeConfigPtr aclIpConfig,
                                          FrrFilterStatusPtr frrFilterStatus ) {
   return Mox::newEntity<FrrFilterSm>(
      std::move( config ), std::move( aclIpConfig ), std::move( frrFilterStatus ) );
}

Mox::Ptr<FrrFilterSm> FrrFilterSmIs( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
                                     FrrFilterStatusPtr frrFilterStatus ) {
   return frrFilterSmFactory( std::move( config ), std::move( aclIpConfig ),
                              std::move( frrFilterStatus ) );
}

FrrFilterSm::FrrFilterSm( ConfigPtr config, AclTypeConfigPtr aclIpConfig,
                          FrrFilterStatusPtr frrFilterStatus )
   : config_( std::move( config ) ),
     aclIpConfig_( std::move( aclIpConfig ) ),
     frrFilterStatus_( std::move( frrFilterStatus ) ) {
   MOX_ASSERT( frrFilterStatus_ != nullptr );
   moxConfig_ = std::make_unique<MoxConfig>( *this );
   moxAclIpConfig_ = std::make_unique<MoxAclIpConfig>( *this );
   handleInitialized();
   if ( aclIpConfig_ != nullptr ) {
      for ( const auto& name : Mox::keysOf( aclIpConfig_->acl() ) )
         watchAcl( name );
   }
}

FrrFilterSm::~FrrFilterSm() = default;

const FrrFilterSm::MoxAclConfig* FrrFilterSm::aclConfig(
   const Mox::String& name ) const {
   auto found = aclConfig_.find( name );
   return found == aclConfig_.end() ? nullptr : found->second.get();
}

void FrrFilterSm::aclConfigIs( const Acl::AclConfig* list ) {
   MOX_ASSERT_TEXT(
      list != nullptr,
      "null _aclConfig parameter to mutator for "
      "Routing::Pim::SparseMode::FrrFilterSm::aclConfig not allowed" );
   const MoxAclConfig* watched = aclConfig( list->name() );
   if ( watched != nullptr && watched->notifier() == list ) return;
   aclConfig_[list->name()] = std::make_unique<MoxAclConfig>( *this, *list );
}

void FrrFilterSm::aclConfigDel( const Mox::String& name ) {
   aclConfig_.erase( name );
}

void FrrFilterSm::aclConfigDelAll() {
   aclConfig_.clear();
}

void FrrFilterSm::watchAcl( const Mox::String& name ) {
   if ( const Acl::AclConfig* list = aclIpConfig()->acl( name ) ) {
      aclConfigIs( list );
   } else {
      aclConfigDel( name );
   }
}

void FrrFilterSm::handleInitialized() {
   MOX_TRACE( facility, 8, FRR_HANDLER( "handleInitialized()" ) );
   if ( !frrFilterStatus()->initialized() ) frrFilterStatus()->handleInitialized();
   initializedIs( true );
   handleFrrFilter();
}

// Deliberately counts again after the rebuild: readers rely on any change at all.
void FrrFilterSm::handleFrrFilter() {
   MOX_TRACE( facility, 8, FRR_HANDLER( "handleFrrFilter()" ) );
   if ( aclIpConfig() != nullptr ) {
      handleAllRules( aclIpConfig()->acl( frrFilter() ) );
   }
   frrFilterStatus()->changeCountInc( 1 );
}

void FrrFilterSm::handleAclConfig() {
   MOX_TRACE( facility, 8, FRR_HANDLER( "handleAclConfig()" ) );
   if ( aclIpConfig() != nullptr ) handleAclConfig( frrFilter() );
}

void FrrFilterSm::handleAclConfig( const Mox::String& name ) {
   MOX_TRACE( facility, 8, FRR_HANDLER( "handleAclConfig(Mox::String) " ) << name );
   if ( aclIpConfig() != nullptr && name == frrFilter() ) {
      return handleAllRules( aclIpConfig()->acl( name ) );
   }
   MOX_TRACE( facility, 8,
              FRR_HANDLER( "handleAclConfig(Mox::String)" )
                 << " not interested in " << name );
}

void FrrFilterSm::handleAllRules( const Acl::AclConfig* aclConfig ) {
   MOX_TRACE( facility, 8, FRR_HANDLER( "handleAllRules(const Acl::AclConfig*)" ) );
   if ( !initialized() ) {
      MOX_TRACE( facility, 8, "handleAllRules not initialized " );
      return;
   }
   // Absent only when another owner has removed it.
   TrieGen* trie = frrFilterStatus()->trie();
   if ( trie != nullptr ) clearTrie( *trie, facility );
   if ( aclConfig == nullptr || aclConfig->currCfg() == nullptr ) {
      MOX_TRACE( facility, 8, "handleAllRules acl deletion, update changeCount " );
   } else if ( trie != nullptr ) {
      for ( const Vantu::IpGenPrefix& prefix : permittedGroups(
               *aclConfig, frrFilterStatus()->addressFamily(), facility ) ) {
         trie->routeIs( prefix, true );
         MOX_TRACE( facility, 8, "pset " << prefix );
      }
   }
   frrFilterStatus()->changeCountInc( 1 );
}

}
