#include "apps/show/text/ChangeText.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

// Leaves out of the path to the source or RP the values that the incoming interface
// and neighbour already show.
std::vector<Change::Field> toldOnce( std::vector<Change::Field> fields ) {
   const auto named = [&]( const char* name ) {
      return std::find_if( fields.begin(), fields.end(), [&]( const auto& field ) {
         return field.name == name;
      } );
   };
   const auto rpf = named( "pimsm-state:rpf" );
   if ( rpf == fields.end() ) return fields;
   for ( const auto& [part, name] :
         { std::pair( "interface", "incoming-interface" ),
           std::pair( "neighbor", "rpf-neighbor" ) } ) {
      const auto told = named( name );
      const auto same = [part = part]( const Json& path, const Json& value ) {
         return ( path.is_null() ? Json() : path.value( part, Json() ) ) == value;
      };
      if ( told == fields.end() || !same( rpf->before, told->before ) ||
           !same( rpf->after, told->after ) )
         continue;
      if ( !rpf->before.is_null() ) rpf->before.erase( part );
      if ( !rpf->after.is_null() ) rpf->after.erase( part );
   }
   return fields;
}

std::string fieldText( const Json& value ) {
   if ( value.is_null() ) return "none";
   if ( value.is_boolean() ) return value.get<bool>() ? "yes" : "no";
   return value.is_string() ? value.get<std::string>() : value.dump();
}

// Adds an object member by member, leaving out equal ones.
void addField( std::string& text, const std::string& name, const Json& before,
               const Json& after, bool update ) {
   if ( before == after ) return;
   if ( before.is_object() || after.is_object() ) {
      const Json old = before.is_null() ? Json::object() : before;
      const Json now = after.is_null() ? Json::object() : after;
      Json all = old;
      all.update( now );
      for ( const auto& [part, ignored] : all.items() )
         addField( text, fmt::format( "{} {}", name, part ),
                   old.value( part, Json() ), now.value( part, Json() ), update );
      return;
   }
   if ( !text.empty() ) text += ", ";
   text += name + ' ';
   if ( update ) text += fieldText( before ) + " -> ";
   text += fieldText( after );
}

}

std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time ) {
   const std::string_view op = change.op;
   const std::string clockTime = time.substr( 11, 12 );
   const std::string where = mirror.vrf() + ' ' + familyName( mirror.family );
   if ( op == "vrf-gone" ) return clockTime + " vrf " + where + " is gone";
   if ( op == "vrf-new" ) return clockTime + " vrf " + where + " is new";
   std::string text = clockTime + ' ' + where + ' ' + change.op;
   if ( op == "sweep" )
      return text + ": fell behind, values in between are skipped";
   if ( change.key == Routing::Pim::RouteKey() ) return text;
   std::string key = keyText( change.key );
   if ( change.rpt ) key.insert( key.size() - 1, ", rpt" );
   text += ' ' + key;
   if ( !change.intfId.empty() ) text += ' ' + std::string( change.intfId.name() );
   if ( op == "delete" ) return text;
   std::string fields;
   for ( const Change::Field& field : toldOnce( change.fields ) )
      addField( fields, field.name.substr( field.name.find( ':' ) + 1 ),
                field.before, field.after, op == "update" );
   return text + ": " + fields;
}

}
