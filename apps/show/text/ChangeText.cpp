#include "apps/show/text/ChangeText.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/ChangeJson.h"
#include "apps/json/YangData.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

struct Field {
   std::string name;
   Json before, after;
};

// Leaves out of the path to the source or RP the values that the incoming interface
// and neighbour already show.
std::vector<Field> toldOnce( std::vector<Field> fields ) {
   const auto named = [&]( const char* name ) {
      const auto found =
         std::find_if( fields.begin(), fields.end(),
                       [&]( const auto& field ) { return field.name == name; } );
      return found == fields.end() ? nullptr : &*found;
   };
   Field* const rpf = named( "pimsm-state:rpf" );
   for ( const auto& [part, name] :
         { std::pair( "interface", "incoming-interface" ),
           std::pair( "neighbor", "rpf-neighbor" ) } ) {
      const Field* const told = named( name );
      const auto same = [part = part]( const Json& path, const Json& value ) {
         return ( path.is_object() ? path.value( part, Json() ) : Json() ) == value;
      };
      if ( rpf == nullptr || told == nullptr ||
           !same( rpf->before, told->before ) || !same( rpf->after, told->after ) )
         continue;
      if ( rpf->before.is_object() ) rpf->before.erase( part );
      if ( rpf->after.is_object() ) rpf->after.erase( part );
   }
   return fields;
}

std::string fieldText( const Json& value ) {
   if ( value.is_null() ) return "none";
   if ( value.is_boolean() ) return value.get<bool>() ? "yes" : "no";
   if ( value.is_string() ) return value.get<std::string>();
   return jsonText( value );
}

// Adds an object member by member, leaving out equal ones.
void addField( std::string& text, const std::string& name, const Json& before,
               const Json& after, bool update ) {
   if ( before == after ) return;
   if ( before.is_object() || after.is_object() ) {
      const Json old = before.is_object() ? before : Json::object();
      const Json now = after.is_object() ? after : Json::object();
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

std::vector<Field> fieldsOf( const Json& line ) {
   std::vector<Field> fields;
   const Json changed = line.value( "changed", Json() );
   if ( !changed.is_object() ) return fields;
   for ( const auto& [name, pair] : changed.items() ) {
      if ( pair.is_array() && pair.size() == 2 )
         fields.push_back( { name, pair[0], pair[1] } );
   }
   return toldOnce( std::move( fields ) );
}

// "(S, G) eth2", "(S, G, rpt)"; of other things interface, address, groups.
std::string thingText( const Json& line ) {
   const auto of = [&line]( const char* name ) {
      const auto found = line.find( name );
      return found != line.end() && found->is_string() ? found->get<std::string>()
                                                       : std::string();
   };
   std::string text;
   if ( !of( "group" ).empty() ) {
      const bool rpt =
         line.value( "is-rpt", Json() ) == true && of( "source-address" ) != "*";
      text = fmt::format( " ({}, {}{})", of( "source-address" ), of( "group" ),
                          rpt ? ", rpt" : "" );
   }
   for ( const char* name : { "interface", "address", "groups" } ) {
      if ( !of( name ).empty() ) text += ' ' + of( name );
   }
   return text;
}

}

std::string changeWords( const Json& line ) {
   if ( !line.is_object() ) return "unknown";
   const Json op = line.value( "op", Json() );
   std::string text = op.is_string() ? op.get<std::string>() : "unknown";
   if ( text == "sweep" )
      return text + ": fell behind, values in between are skipped";
   const bool update = text.ends_with( "update" );
   const bool gone = text == "delete" || text.ends_with( "-gone" );
   text += thingText( line );
   std::string fields;
   for ( const Field& field : fieldsOf( line ) )
      addField( fields, field.name.substr( field.name.find( ':' ) + 1 ),
                field.before, field.after, update );
   return gone || fields.empty() ? text : text + ": " + fields;
}

std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time ) {
   const std::string_view op = change.op;
   const std::string clockTime = time.substr( 11, 12 );
   const std::string where = mirror.vrf() + ' ' + familyName( mirror.family );
   if ( op == "vrf-gone" ) return clockTime + " vrf " + where + " is gone";
   if ( op == "vrf-new" ) return clockTime + " vrf " + where + " is new";
   return clockTime + ' ' + where + ' ' +
          changeWords( changeJson( mirror, change, time ) );
}

}
