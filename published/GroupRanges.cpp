#include "published/GroupRanges.h"

#include <map>

#include "platform/acl/AclToPrefix.h"
#include "platform/pim/EmbeddedRp.h"

namespace Published {

namespace Sm = Routing::Pim::SparseMode;

namespace {

bool mounted( const MoxBrane::TableBase& table ) {
   return table.control()->mountStatus() == MoxBrane::mountReady;
}

std::optional<Mox::String> settingOf( const FamilyStatus& tables,
                                      const char* name ) {
   Setting found;
   if ( !mounted( tables.setting() ) ||
        tables.setting().find( Text<32>( name ), found ) != Brane::lookupFound )
      return std::nullopt;
   return found.value.text();
}

// The lists by name; nothing when a rule is missing or they are no lists.
std::optional<std::map<Mox::String, Acl::AclRules>> listsOf(
   const FamilyStatus& tables, const Mox::String& count ) {
   struct Rules {
      Acl::AclType type;
      std::vector<Acl::AclRule> rules;
   };
   std::map<Mox::String, Rules> found;
   size_t rules = 0;
   tables.accessRule().visit( [&]( const AccessRule& record ) {
      Rules& list = found[record.key.list.text()];
      list.type = record.type;
      list.rules.push_back( { record.key.sequence, record.action, record.source,
                              record.destination } );
      ++rules;
      return true;
   } );
   if ( std::to_string( rules ) != count ) return std::nullopt;
   std::map<Mox::String, Acl::AclRules> lists;
   try {
      for ( auto& [name, list] : found )
         lists.emplace( name, Acl::AclRules( list.type, std::move( list.rules ) ) );
   } catch ( const Mox::RangeError& ) {
      return std::nullopt;
   }
   return lists;
}

}

GroupRanges::GroupRanges( Vantu::AddressFamily family,
                          const FamilyStatus& tables ) {
   rpsKnown_ = mounted( tables.rp() );
   if ( rpsKnown_ ) {
      tables.rp().visit( [this]( const Rp& record ) {
         const RpKey& range = record.key;
         if ( range.length <= Vantu::addressBits( range.group.family() ) )
            rps_.insert( { range.group, range.length }, record );
         return true;
      } );
   }
   if ( const auto embeds = settingOf( tables, "embedded-rp" ) )
      embeds_ = *embeds == "yes";
   if ( mounted( tables.ownAddress() ) ) {
      for ( const OwnAddressKey& key : tables.ownAddress().keys() )
         own_.insert( key.address );
   }
   const auto filter = settingOf( tables, "ssmFilter" );
   const auto count = settingOf( tables, "access-rules" );
   if ( !filter || !count || !mounted( tables.accessRule() ) ) return;
   const auto lists = listsOf( tables, *count );
   if ( !lists ) return;
   auto known = Mox::newEntity<Acl::AclTypeConfig>();
   for ( const auto& [name, rules] : *lists ) known->aclIs( name, rules );
   config_ = Mox::newEntity<Sm::Config>( "" );
   config_->ssmFilterIs( *filter );
   ssm_ = Mox::newEntity<Sm::SsmGroupInfo>( family );
   Sm::SsmGroupSmIs( config_, known, ssm_ );
   if ( filter->empty() || *filter == Sm::noSsmRange ) return;
   listed_.emplace();
   const auto* list = known->acl( *filter );
   if ( family == Vantu::AddressFamily::ipv4 )
      AclPrefix::AclToPrefix::multicast().handleAcl( list, *listed_, false );
   else
      AclIp6Prefix::AclToIp6Prefix::multicast().handleAcl( list, *listed_, false );
}

GroupRanges::Mapping GroupRanges::rpMapping( const Vantu::IpGenAddr& group ) const {
   if ( const auto embedded = Routing::Pim::embeddedRp( group ) ) {
      if ( !embeds_ ) return {};
      if ( !*embeds_ || embedded->isUnspecified() ) return { Mapping::none };
      return { Mapping::embedded, *embedded, {}, own_.contains( *embedded ) };
   }
   if ( !rpsKnown_ ) return {};
   const auto found = rps_.find( group );
   if ( !found ) return { Mapping::none };
   const Rp& rp = found->value;
   return { Mapping::configured,
            rp.address,
            { rp.key.group, static_cast<uint8_t>( rp.key.length ) },
            rp.own };
}

GroupRanges::Mapping GroupRanges::mapping( const Vantu::IpGenAddr& group ) const {
   if ( sourceSpecific( group ).value_or( false ) )
      return { Mapping::sourceSpecific };
   return rpMapping( group );
}

std::optional<Vantu::IpGenAddr> GroupRanges::rp(
   const Vantu::IpGenAddr& group ) const {
   const Mapping mapping = rpMapping( group );
   if ( mapping.rule < Mapping::embedded ) return std::nullopt;
   return mapping.rp;
}

bool GroupRanges::ownRp( const Vantu::IpGenAddr& group ) const {
   return rpMapping( group ).own;
}

std::optional<bool> GroupRanges::sourceSpecific(
   const Vantu::IpGenAddr& group ) const {
   if ( config_ == nullptr ) return std::nullopt;
   return ssm_->ssmGroup( group, *config_ );
}

}
