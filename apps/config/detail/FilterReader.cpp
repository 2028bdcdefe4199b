#include "apps/config/detail/VrfReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "apps/config/detail/Values.h"
#include "ssm/SsmGroupInfo.h"

namespace Agent {

namespace {

// The lists filter groups only.
IpGenPrefix readRuleGroup( const Place& place ) {
   auto group = Section::convert<IpGenPrefix>( place, "group" );
   if ( group.isNone() ) return group;
   IpGenPrefix range = multicastRange( group.family() );
   if ( range.contains( group ) || group.contains( range ) ) return group;
   place.fail( fmt::format( "group: {} is not within {}", valueToStrep( group ),
                            valueToStrep( range ) ) );
}

// A rule with a source makes the list an extended one.
Acl::AclRule readRule( const Place& place, uint32_t place10, bool& extended ) {
   Section section( place, "rule" );
   Acl::AclRule out;
   out.sequence = place10;
   section.value( "sequence", out.sequence );
   Place action = section.require( "action" );
   std::string word = action.text( "action" );
   if ( word != "permit" && word != "deny" )
      action.fail( fmt::format( "action: '{}' is neither permit nor deny", word ) );
   out.action = Section::convert<Acl::AclAction>( action, "action" );
   if ( std::optional<Place> group = section.take( "group" ) )
      out.destination = readRuleGroup( *group );
   if ( std::optional<Place> source = section.take( "source" ) ) {
      out.source = Section::convert<IpGenPrefix>( *source, "source" );
      extended = true;
   }
   section.finish();
   return out;
}

// The family of the rules; nothing for a list that matches any address.
std::optional<AddressFamily> familyOf( const Acl::AclRules& rules ) {
   for ( const Acl::AclRule& rule : rules.rules() ) {
      for ( const IpGenPrefix& prefix : { rule.source, rule.destination } ) {
         if ( !prefix.isNone() ) return prefix.family();
      }
   }
   return std::nullopt;
}

}

AccessListConfig VrfReader::readAccessList( const Place& place ) {
   Section section( place, "access-list" );
   AccessListConfig out;
   Place name = section.require( "name" );
   out.name = Section::convert<std::string>( name, "name" );
   checkName( name, out.name );
   if ( out.name.empty() ) name.fail( "an access list needs a name" );
   checkNew( name, "access list", accessLists_, out.name, out.name );
   std::vector<Acl::AclRule> rules;
   bool extended = false;
   for ( const Place& member : section.list( "rules" ) ) {
      auto next = static_cast<uint32_t>( 10 * ( rules.size() + 1 ) );
      rules.push_back( readRule( member, next, extended ) );
   }
   section.finish();
   // A standard list has its only prefix in `source`.
   if ( !extended ) {
      for ( Acl::AclRule& rule : rules ) std::swap( rule.source, rule.destination );
   }
   try {
      out.rules = { extended ? Acl::extended : Acl::standard, rules };
   } catch ( const Mox::RangeError& e ) {
      place.fail( e.what() );
   }
   return out;
}

// A filter whose list is missing, or matches no group of its family, would silently
// filter nothing.
void VrfReader::readFilter( Section& section, const std::string& key,
                            AddressFamily family, const VrfConfig& vrf,
                            std::string& out ) {
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   out = place->text( key );
   bool isSsm = key.substr( 0, 3 ) == "ssm";
   if ( isSsm && out == Routing::Pim::SparseMode::noSsmRange ) return;
   const AccessListConfig& list = listOf( *place, key, vrf );
   if ( familyOf( list.rules ).value_or( family ) != family )
      place->fail(
         fmt::format( "{}: access list '{}' is of another family", key, out ) );
}

const AccessListConfig& VrfReader::listOf( const Place& place,
                                           const std::string& key,
                                           const VrfConfig& vrf ) {
   const std::string name = place.text( key );
   auto list =
      std::find_if( vrf.accessLists.begin(), vrf.accessLists.end(),
                    [&]( const auto& each ) { return each.name == name; } );
   if ( list == vrf.accessLists.end() )
      place.fail( fmt::format( "{}: no access list '{}' in this VRF", key, name ) );
   return *list;
}

void VrfReader::readFilters( Section& section, const std::string& key,
                             const VrfConfig& vrf, Router::FamilyLists& out ) {
   readFilter( section, key, AddressFamily::ipv4, vrf, out.ipv4 );
   readFilter( section, key + "6", AddressFamily::ipv6, vrf, out.ipv6 );
}

// A value for all groups, or a list of values with the groups' access lists.
void VrfReader::readSptThreshold( Section& section, VrfConfig& out ) {
   const char* const key = "spt-threshold";
   std::optional<Place> place = section.take( key );
   if ( !place ) return;
   if ( place->node.IsScalar() ) {
      out.sptThresholds = { { readRate( *place, key ) } };
      return;
   }
   for ( const Place& member : place->list( key ) ) {
      Section entry( member, key );
      SptThreshold threshold{ readRate( entry.require( "rate" ), "rate" ) };
      if ( std::optional<Place> groups = entry.take( "groups" ) )
         threshold.groups = listOf( *groups, "groups", out ).name;
      entry.finish();
      out.sptThresholds.push_back( threshold );
   }
}

double VrfReader::readRate( const Place& place, const char* key ) {
   const auto text = Section::convert<std::string>( place, key );
   if ( text == "immediate" ) return 0.0;
   if ( text == "infinity" ) return std::numeric_limits<double>::infinity();
   uint32_t rate = 0;
   const auto [end, error] =
      std::from_chars( text.data(), text.data() + text.size(), rate );
   if ( error != std::errc() || end != text.data() + text.size() || rate == 0 )
      place.fail( fmt::format(
         "{}: '{}' is neither immediate nor infinity nor a rate in kbit/s", key,
         text ) );
   return rate;
}

}
