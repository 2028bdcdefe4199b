#include "apps/json/EntryChanges.h"

#include <algorithm>
#include <array>

#include "apps/json/Trim.h"

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
Json changedFields( const Json& before, const Json& after ) {
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
   Json changed = changedFields( before, after );
   if ( before.is_null() == after.is_null() && changed.empty() ) return;
   line["op"] = before.is_null() ? "add" : after.is_null() ? "delete" : "update";
   if ( !changed.empty() ) line["changed"] = std::move( changed );
   lines.push_back( std::move( line ) );
}

// The members that tell the elements of a list apart.
using Keys = std::vector<const char*>;
using List = std::vector<const Json*>;

List elementsOf( const Json& list ) {
   List all;
   if ( !list.is_array() ) return all;
   for ( const Json& each : list ) {
      if ( each.is_object() ) all.push_back( &each );
   }
   return all;
}

const Json& member( const Json& json, const char* name ) {
   static const Json kNone;
   const auto found = json.is_object() ? json.find( name ) : json.end();
   return found != json.end() ? *found : kNone;
}

bool same( const Json& a, const Json& b, const Keys& keys ) {
   return std::all_of( keys.begin(), keys.end(), [&]( const char* name ) {
      return member( a, name ) == member( b, name );
   } );
}

// Calls for each element of either list, with null where one is missing. Lists have
// their elements in one order, and mostly the same ones: those are met at once.
template <class Call>
void pair( const List& before, const List& after, const Keys& keys,
           const Call& call ) {
   static const Json kNone;
   List left = before;
   size_t at = 0;
   for ( const Json* is : after ) {
      const auto meets = [&]( const Json* was ) {
         return was != nullptr && same( *was, *is, keys );
      };
      auto found = at < left.size() && meets( left[at] )
                      ? left.begin() + static_cast<ptrdiff_t>( at )
                      : std::find_if( left.begin(), left.end(), meets );
      call( found != left.end() ? **found : kNone, *is );
      if ( found == left.end() ) continue;
      at = static_cast<size_t>( found - left.begin() ) + 1;
      *found = nullptr;
   }
   for ( const Json* was : left ) {
      if ( was != nullptr ) call( *was, kNone );
   }
}

Json lineOf( const Json& either, const Keys& keys ) {
   Json line;
   line["op"] = nullptr;
   for ( const char* name : keys ) line[name] = either.value( name, Json() );
   return line;
}

// The interfaces of two entries that differ, each restored.
void tellInterfaces( std::vector<Json>& lines, const Json& line, const Json& was,
                     const Json& is ) {
   const bool rpt = isRptEntry( line );
   const auto whole = [rpt]( const Json& each ) {
      return each.is_null() || rpt ? each : restoredInterface( each );
   };
   pair( elementsOf( member( was, kInterfaces ) ),
         elementsOf( member( is, kInterfaces ) ), { "name" },
         [&]( const Json& former, const Json& present ) {
            if ( former == present ) return;
            Json own = line;
            own["interface"] =
               member( former.is_null() ? present : former, "name" );
            tell( lines, own, whole( former ), whole( present ) );
         } );
}

Json withoutInterfaces( const Json& entry ) {
   if ( entry.is_null() ) return entry;
   Json own = Json::object();
   for ( const auto& [name, value] : entry.items() ) {
      if ( name != kInterfaces ) own[name] = value;
   }
   return restored( std::move( own ) );
}

}

std::vector<Json> routeChanges( const Json& before, const Json& after ) {
   const Keys keys = { "group", "source-address", "is-rpt" };
   std::vector<Json> lines;
   pair( elementsOf( before ), elementsOf( after ), keys,
         [&]( const Json& was, const Json& is ) {
            const Json line = lineOf( was.is_null() ? is : was, keys );
            tell( lines, line, withoutInterfaces( was ), withoutInterfaces( is ) );
            tellInterfaces( lines, line, was, is );
         } );
   return lines;
}

std::vector<Json> listChanges( const std::string& thing, const Keys& keys,
                               const Json& before, const Json& after ) {
   std::vector<Json> lines;
   pair( elementsOf( before ), elementsOf( after ), keys,
         [&]( const Json& was, const Json& is ) {
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
