#include "apps/json/Trim.h"

#include <array>

#include "apps/json/RouteMembers.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

constexpr std::array<const char*, 3> kPaths = {
   "pimsm-state:rpf", "pimsm-state:previous-rpf", "pimsm-state:fast-reroute-rpf" };

// Adds the members that are missing.
void restore( Json& json, const Json& defaults ) {
   if ( !json.is_object() ) return;
   for ( const auto& [name, value] : defaults.items() ) {
      if ( !json.contains( name ) ) json[name] = value;
   }
}

// What a record without state says is what is left out.
const Json& ofRoute() {
   static const Json defaults = [] {
      Json json;
      addRouteState( json, RouteRecord() );
      return json;
   }();
   return defaults;
}

const Json& ofInterface() {
   static const Json defaults = [] {
      Json json;
      addIntf( json, IntfRecord() );
      return json;
   }();
   return defaults;
}

void addOutgoing( Json& entry, const Json& interfaces ) {
   Json outgoing = Json::array();
   for ( const Json& each : interfaces ) {
      if ( each.is_object() && each.value( "forwarding", Json() ) == true )
         outgoing.push_back(
            { { "name", each.value( "name", Json() ) },
              { "jp-state", each.value( "join-state", Json() ) } } );
   }
   entry["outgoing-interface"] = std::move( outgoing );
}

}

bool isRptEntry( const Json& entry ) {
   return entry.is_object() && entry.value( "is-rpt", Json() ) == true &&
          entry.value( "source-address", Json() ) != "*";
}

Json restoredInterface( Json interface ) {
   restore( interface, ofInterface() );
   return interface;
}

Json restored( Json entry ) {
   if ( !entry.is_object() || isRptEntry( entry ) ) return entry;
   restore( entry, ofRoute() );
   for ( const char* path : kPaths ) {
      if ( entry.contains( path ) && entry[path].is_object() &&
           !entry[path].contains( "attached" ) )
         entry[path]["attached"] = false;
   }
   const auto interfaces = entry.find( "pimsm-state:interface" );
   if ( interfaces == entry.end() || !interfaces->is_array() ) return entry;
   for ( Json& each : *interfaces ) restore( each, ofInterface() );
   addOutgoing( entry, *entry.find( "pimsm-state:interface" ) );
   return entry;
}

}
