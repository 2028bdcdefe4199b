#include "published/GroupRanges.h"

#include <map>

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
   tables.accessRule().visit( nullptr, [&]( const AccessRule& record ) {
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
   if ( mounted( tables.rp() ) ) {
      tables.rp().visit( nullptr, [this]( const Rp& record ) {
         const RpKey& range = record.key;
         if ( range.length <= Vantu::addressBits( range.group.family() ) )
            rps_.insert( { range.group, range.length }, record );
         return true;
      } );
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
}

std::optional<Vantu::IpGenAddr> GroupRanges::rp(
   const Vantu::IpGenAddr& group ) const {
   const auto found = rps_.find( group );
   if ( !found ) return std::nullopt;
   return found->value.address;
}

bool GroupRanges::ownRp( const Vantu::IpGenAddr& group ) const {
   const auto found = rps_.find( group );
   return found && found->value.own;
}

std::optional<bool> GroupRanges::sourceSpecific(
   const Vantu::IpGenAddr& group ) const {
   if ( config_ == nullptr ) return std::nullopt;
   return ssm_->ssmGroup( group, *config_ );
}

}
