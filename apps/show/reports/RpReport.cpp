#include "apps/show/reports/RpReport.h"

#include <fmt/format.h>

#include "apps/json/RpJson.h"
#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
#include "platform/pim/EmbeddedRp.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Mapping = Published::GroupRanges::Mapping;

namespace {

std::string hereText( const Mapping& mapping ) {
   return mapping.own ? "this router" : "another router";
}

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
