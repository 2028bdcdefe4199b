#include "apps/json/Trim.h"

#include <array>
#include <string_view>

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

struct Default {
   const char* name;
   Json value;
};
using Defaults = std::vector<Default>;

const Defaults& ofInterface() {
   static const Defaults all = { { "forwarding", false },
                                 { "fast-failover-forwarding", false },
                                 { "join-state", "no-info" },
                                 { "assert-state", "no-info" },
                                 { "local-receiver-include", false },
                                 { "local-receiver-exclude", false },
                                 { "to-be-deleted", false },
                                 { "allow-rp-in-use", false } };
   return all;
}

const Defaults& ofRoute() {
   static const Defaults all = {
      { "pimsm-state:flags", "" },
      { "pimsm-state:upstream-join-state", "not-joined" },
      { "pimsm-state:interface-switch",
        { { "state", "not-switching" }, { "pending", false } } } };
   return all;
}

constexpr std::array<const char*, 3> kPaths = {
   "pimsm-state:rpf", "pimsm-state:previous-rpf", "pimsm-state:fast-reroute-rpf" };
const Defaults& ofPath() {
   static const Defaults all = { { "attached", false } };
   return all;
}

void trim( Json& json, const Defaults& defaults ) {
   for ( const auto& [name, value] : defaults ) {
      const auto found = json.find( name );
      if ( found != json.end() && *found == value ) json.erase( found );
   }
}

void restore( Json& json, const Defaults& defaults ) {
   if ( !json.is_object() ) return;
   for ( const auto& [name, value] : defaults ) {
      if ( !json.contains( name ) ) json[name] = value;
   }
}

// Is it the entry of a source on the RP tree? It has other members.
bool isRpt( const Json& entry ) {
   const auto rpt = entry.find( "is-rpt" );
   const auto source = entry.find( "source-address" );
   return rpt != entry.end() && *rpt == true && source != entry.end() &&
          *source != "*";
}

template <class Change>
void eachInterface( Json& entry, const Change& change ) {
   const auto all = entry.find( "pimsm-state:interface" );
   if ( all == entry.end() || !all->is_array() ) return;
   for ( Json& each : *all ) {
      if ( each.is_object() ) change( each );
   }
}

void addOutgoing( Json& entry ) {
   Json outgoing = Json::array();
   eachInterface( entry, [&]( const Json& each ) {
      if ( each.value( "forwarding", Json() ) == true )
         outgoing.push_back(
            { { "name", each.value( "name", Json() ) },
              { "jp-state", each.value( "join-state", Json( "no-info" ) ) } } );
   } );
   entry["outgoing-interface"] = std::move( outgoing );
}

}

Json trimmed( Json entry ) {
   entry.erase( "outgoing-interface" );
   if ( isRpt( entry ) ) return entry;
   trim( entry, ofRoute() );
   for ( const char* path : kPaths ) {
      if ( entry.contains( path ) ) trim( entry[path], ofPath() );
   }
   eachInterface( entry, []( Json& each ) { trim( each, ofInterface() ); } );
   return entry;
}

Json restored( Json entry ) {
   if ( !entry.is_object() || isRpt( entry ) ) return entry;
   restore( entry, ofRoute() );
   for ( const char* path : kPaths ) {
      if ( entry.contains( path ) ) restore( entry[path], ofPath() );
   }
   eachInterface( entry, []( Json& each ) { restore( each, ofInterface() ); } );
   addOutgoing( entry );
   return entry;
}

}
