#include "apps/show/reports/RpReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
#include "platform/pim/EmbeddedRp.h"
#include "ssm/SsmGroupInfo.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Mapping = Published::GroupRanges::Mapping;

namespace {

const char* ruleText( Mapping::Rule rule ) {
   constexpr const char* kWords[] = { "unknown", "none", "source-specific",
                                      "embedded", "configured" };
   return kWords[rule];
}

bool overlap( const RouteFilter& filter, const Vantu::IpGenPrefix& range ) {
   return !filter.group || filter.group->contains( range.address() ) ||
          range.contains( filter.group->address() );
}

void addConfigured( const Mirror& mirror, const RouteFilter& filter,
                    RpRanges& selected ) {
   std::vector<Published::Rp> all;
   mirror.agent->rp().visit( nullptr, [&]( const Published::Rp& record ) {
      if ( record.key.length <= Vantu::addressBits( record.key.group.family() ) )
         all.push_back( record );
      return true;
   } );
   selected.all += all.size();
   std::sort( all.begin(), all.end(),
              []( const auto& a, const auto& b ) { return a.key < b.key; } );
   for ( const Published::Rp& record : all ) {
      const Vantu::IpGenPrefix range( record.key.group, record.key.length );
      if ( overlap( filter, range ) )
         selected.rows.push_back(
            { valueToStrep( range ),
              { Mapping::configured, record.address, range, record.own } } );
   }
}

std::optional<std::string> setting( const Mirror& mirror, const char* name ) {
   Published::Setting found;
   if ( mirror.agent->setting().find( Published::Text<32>( name ), found ) !=
        Brane::lookupFound )
      return std::nullopt;
   return found.value.text();
}

// The ranges that no configured RP is asked about.
void addOthers( const Mirror& mirror, RpRanges& selected ) {
   const auto add = [&]( const std::string& groups, Mapping::Rule rule ) {
      selected.rows.push_back( { groups, { rule } } );
      ++selected.all;
   };
   const bool ipv4 = mirror.family == Vantu::AddressFamily::ipv4;
   if ( !ipv4 && setting( mirror, "embedded-rp" ) == "yes" )
      add( "ff70::/12", Mapping::embedded );
   const auto filter = setting( mirror, "ssmFilter" );
   if ( !filter || *filter == Routing::Pim::SparseMode::noSsmRange ) return;
   add( !filter->empty() ? "list " + *filter
        : ipv4           ? "232.0.0.0/8"
                         : "ff3x::/32",
        Mapping::sourceSpecific );
}

std::string hereText( const Mapping& mapping ) {
   return mapping.own ? "this router" : "another router";
}

void addMapping( Json& json, const Mapping& mapping ) {
   json["rule"] = ruleText( mapping.rule );
   if ( mapping.rp == Vantu::IpGenAddr() ) return;
   json["rp-address"] = Vantu::valueToStrep( mapping.rp );
   json["this-router"] = mapping.own;
}

}

RpRanges selectRps( const Mirror& mirror, const RouteFilter& filter ) {
   RpRanges selected;
   selected.known = isReady( mirror.agent->rp() );
   addConfigured( mirror, filter, selected );
   // A prefix of a list is not compared with others.
   if ( !filter.group ) addOthers( mirror, selected );
   return selected;
}

std::string rpsText( const RpRanges& selected ) {
   TextTable table( { { "groups" }, { "RP" }, { "is" }, { "rule" } } );
   for ( const RpRow& row : selected.rows ) {
      const bool one = row.mapping.rule == Mapping::configured;
      const bool none = row.mapping.rule == Mapping::sourceSpecific;
      table.add( { Programs::printable( row.groups ),
                   one    ? Vantu::valueToStrep( row.mapping.rp )
                   : none ? "none"
                          : "in the group's address",
                   one ? hereText( row.mapping ) : "",
                   ruleText( row.mapping.rule ) } );
   }
   return table.text();
}

Json rpsJson( const RpRanges& selected ) {
   Json list = Json::array();
   for ( const RpRow& row : selected.rows ) {
      Json json;
      json["groups"] = row.groups;
      addMapping( json, row.mapping );
      list.push_back( std::move( json ) );
   }
   return list;
}

GroupRp groupRp( const Mirror& mirror, const Vantu::IpGenAddr& group ) {
   return {
      group,
      Published::GroupRanges( mirror.family, *mirror.agent ).mapping( group ) };
}

std::string groupRpText( const GroupRp& found ) {
   const Mapping& mapping = found.mapping;
   const std::string group = Vantu::valueToStrep( found.group );
   const std::string rp = Vantu::valueToStrep( mapping.rp );
   switch ( mapping.rule ) {
      case Mapping::none:
         return group + ( Routing::Pim::embeddedRp( found.group )
                             ? " has no RP: its address names none that counts here"
                             : " has no RP: no range holds it" );
      case Mapping::sourceSpecific:
         return group + " is source-specific and needs no RP";
      case Mapping::embedded:
         return fmt::format( "{} has RP {}, {}, embedded in its address", group, rp,
                             hereText( mapping ) );
      case Mapping::configured:
         return fmt::format( "{} has RP {}, {}, by the range {}", group, rp,
                             hereText( mapping ), valueToStrep( mapping.range ) );
      default:
         return group + ": its RP is unknown";
   }
}

Json groupRpJson( const GroupRp& found ) {
   Json json;
   json["group"] = Vantu::valueToStrep( found.group );
   addMapping( json, found.mapping );
   if ( found.mapping.rule == Mapping::configured )
      json["groups"] = valueToStrep( found.mapping.range );
   return json;
}

}
