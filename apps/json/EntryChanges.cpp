#include "apps/json/EntryChanges.h"

#include <algorithm>
#include <array>
#include <map>

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* kInterfaces = "pimsm-state:interface";
// Members that name a thing, follow from others, or are times.
constexpr std::array<std::string_view, 7> kSkipped = {
   "group",    "source-address",     "is-rpt",
   "name",     "outgoing-interface", "pimsm-state:created",
   kInterfaces };

bool isSkipped( const std::string& name ) {
   return std::find( kSkipped.begin(), kSkipped.end(), name ) != kSkipped.end();
}

// Each member that differs between two objects, either of which may be null.
Json differences( const Json& before, const Json& after ) {
   Json changed = Json::object();
   const auto of = []( const Json& json, const std::string& name ) {
      return json.is_object() ? json.value( name, Json() ) : Json();
   };
   const auto look = [&]( const Json& from ) {
      if ( !from.is_object() ) return;
      for ( const auto& [name, value] : from.items() ) {
         const Json was = of( before, name ), is = of( after, name );
         if ( was != is && !isSkipped( name ) && !changed.contains( name ) )
            changed[name] = Json::array( { was, is } );
      }
   };
   look( before );
   look( after );
   return changed;
}

// Adds a line unless nothing differs.
void tell( std::vector<Json>& lines, Json line, const Json& before,
           const Json& after ) {
   Json changed = differences( before, after );
   if ( before.is_null() == after.is_null() && changed.empty() ) return;
   line["op"] = before.is_null() ? "add" : after.is_null() ? "delete" : "update";
   if ( !changed.empty() ) line["changed"] = std::move( changed );
   lines.push_back( std::move( line ) );
}

// The elements of a list by the text of these members.
std::map<std::string, Json> byKey( const Json& list,
                                   const std::vector<const char*>& keys ) {
   std::map<std::string, Json> all;
   if ( !list.is_array() ) return all;
   for ( const Json& each : list ) {
      if ( !each.is_object() ) continue;
      std::string key;
      for ( const char* name : keys )
         key += each.value( name, Json() )
                   .dump( -1, ' ', false, Json::error_handler_t::replace ) +
                ' ';
      all[key] = each;
   }
   return all;
}

// Calls for each element of either list, with null where one is missing.
template <class Call>
void pair( const Json& before, const Json& after,
           const std::vector<const char*>& keys, const Call& call ) {
   const auto was = byKey( before, keys ), is = byKey( after, keys );
   for ( const auto& [key, each] : was ) {
      const auto now = is.find( key );
      call( each, now != is.end() ? now->second : Json() );
   }
   for ( const auto& [key, each] : is ) {
      if ( !was.contains( key ) ) call( Json(), each );
   }
}

Json lineOf( const Json& either, const std::vector<const char*>& keys ) {
   Json line;
   line["op"] = nullptr;
   for ( const char* name : keys ) line[name] = either.value( name, Json() );
   return line;
}

}

std::vector<Json> routeChanges( const std::vector<Json>& before,
                                const std::vector<Json>& after ) {
   const std::vector<const char*> keys = { "group", "source-address", "is-rpt" };
   std::vector<Json> lines;
   pair( before, after, keys, [&]( const Json& was, const Json& is ) {
      const Json line = lineOf( was.is_null() ? is : was, keys );
      tell( lines, line, was, is );
      const auto interfaces = []( const Json& entry ) {
         return entry.is_object() ? entry.value( kInterfaces, Json() ) : Json();
      };
      pair( interfaces( was ), interfaces( is ), { "name" },
            [&]( const Json& former, const Json& present ) {
               Json own = line;
               own["interface"] = ( former.is_null() ? present : former )["name"];
               tell( lines, own, former, present );
            } );
   } );
   return lines;
}

std::vector<Json> listChanges( const std::string& thing,
                               const std::vector<const char*>& keys,
                               const Json& before, const Json& after ) {
   std::vector<Json> lines;
   pair( before, after, keys, [&]( const Json& was, const Json& is ) {
      const size_t count = lines.size();
      tell( lines, lineOf( was.is_null() ? is : was, keys ), was, is );
      if ( lines.size() == count ) return;
      const char* what = was.is_null()  ? "-new"
                         : is.is_null() ? "-gone"
                                        : "-update";
      lines.back()["op"] = thing + what;
   } );
   return lines;
}

}
