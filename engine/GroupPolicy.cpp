#include "engine/GroupPolicy.h"

#include <set>

#include "platform/pim/EmbeddedRp.h"

namespace Router {

namespace Sm = Routing::Pim::SparseMode;

GroupPolicy::GroupPolicy( Vantu::AddressFamily family, const VrfConfig& config )
   : family_( family ),
     config_( Mox::newEntity<Sm::Config>( config.name.name() ) ),
     lists_( Mox::newEntity<Acl::AclTypeConfig>() ),
     ssm_( Mox::newEntity<Sm::SsmGroupInfo>( family ) ),
     ssmSm_( Sm::SsmGroupSmIs( config_, lists_, ssm_ ) ),
     filter_( new Sm::SsmJoinPruneFilter( config_, ssm_ ) ),
     frr_( Sm::frrFilterStatusFactory( family ) ),
     frrSm_( Sm::frrFilterSmFactory( config_, lists_, frr_ ) ) {
   configIs( config );
}

GroupPolicy::~GroupPolicy() = default;

void GroupPolicy::configIs( const VrfConfig& config ) {
   embeddedRps_ = config.embeddedRp;
   std::set<std::string> named;
   for ( const AccessListConfig& list : config.accessLists ) {
      lists_->aclIs( list.name, list.rules );
      named.insert( list.name );
   }
   for ( const Mox::String& name : Mox::keysOf( lists_->acl() ) ) {
      if ( named.count( name ) == 0 ) lists_->aclDel( name );
   }
   bool ipv4 = family_ == Vantu::AddressFamily::ipv4;
   config_->ssmFilterIs( ipv4 ? config.ssmFilter : config.ssmFilter6 );
   config_->frrFilterIs( ipv4 ? config.frrFilter : config.frrFilter6 );
}

std::optional<Refusal> GroupPolicy::refusalOfShared(
   const Vantu::IpGenAddr& group ) const {
   if ( sourceSpecific( group ) ) return ssmGroup;
   const auto rp = Routing::Pim::embeddedRp( group );
   if ( rp && ( !embeddedRps_ || rp->isUnspecified() ) ) return noEmbeddedRp;
   return std::nullopt;
}

bool GroupPolicy::frrEnabled( const Vantu::IpGenAddr& source,
                              const Vantu::IpGenAddr& group ) const {
   unsigned bits = Vantu::addressBits( family_ );
   return frr_->frrEnabled( { source, bits }, { group, bits } );
}

}
