#include "apps/fleet/answers/Routes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/json/Trim.h"
#include "apps/json/YangData.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Fleet {

using Json = nlohmann::ordered_json;
using Show::RouteFilter;

namespace {

constexpr const char* kInterfaces = "pimsm-state:interface";

bool flag( const Json& json, const char* name ) {
   return json.value( name, Json() ) == true;
}

Json interfacesOf( const Json& entry ) {
   Json all = entry.value( kInterfaces, Json() );
   return all.is_array() ? all : Json::array();
}

bool matches( const RouteFilter& filter, const Json& interface ) {
   if ( !interface.is_object() ) return false;
   if ( filter.forwarding && flag( interface, "forwarding" ) != *filter.forwarding )
      return false;
   return filter.iface.empty() || textMember( interface, "name" ) == filter.iface;
}

bool matches( const RouteFilter& filter, const RouteKey& key, const Json& entry ) {
   const bool wildcard = key.source.isUnspecified();
   if ( filter.kind == ( wildcard ? "sg" : "wc" ) || !filter.matches( key ) )
      return false;
   if ( !filter.iif.empty() &&
        textMember( entry, "incoming-interface" ) != filter.iif )
      return false;
   if ( filter.iface.empty() && !filter.forwarding ) return true;
   const Json all = interfacesOf( entry );
   return std::any_of( all.begin(), all.end(), [&]( const Json& each ) {
      return matches( filter, each );
   } );
}

// Only the interfaces that the filter lets through.
void narrow( Json& entry, const RouteFilter& filter ) {
   Json kept = Json::array();
   for ( const Json& each : interfacesOf( entry ) ) {
      if ( matches( filter, each ) ) kept.push_back( each );
   }
   entry[kInterfaces] = std::move( kept );
}

std::string clean( const Json& json, const char* name ) {
   return Programs::printable( textMember( json, name ) );
}

std::string treeText( const Json& entry ) {
   if ( flag( entry, "is-spt" ) ) return "source tree";
   const std::string flags = textMember( entry, "pimsm-state:flags" );
   return flags.find( "rp-tree" ) != std::string::npos ||
                flags.find( "wild-card" ) != std::string::npos
             ? "shared tree"
             : "no tree";
}

std::string incomingText( const Json& entry ) {
   const std::string intf = clean( entry, "incoming-interface" );
   if ( intf.empty() ) return "unresolved";
   const std::string neighbor = clean( entry, "rpf-neighbor" );
   return "in " + intf + ( neighbor.empty() ? ", attached" : " via " + neighbor );
}

// Milliseconds of "2024-05-01T10:00:02.114Z"; nothing if it is no such text.
std::optional<int64_t> millisecondsOf( const std::string& text ) {
   std::tm time{};
   int milliseconds = 0;
   if ( std::sscanf( text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &time.tm_year,
                     &time.tm_mon, &time.tm_mday, &time.tm_hour, &time.tm_min,
                     &time.tm_sec, &milliseconds ) != 7 )
      return std::nullopt;
   time.tm_year -= 1900;
   time.tm_mon -= 1;
   return int64_t{ timegm( &time ) } * 1000 + milliseconds;
}

std::string ageText( const Json& entry, int64_t now ) {
   const auto created =
      millisecondsOf( textMember( entry, "pimsm-state:created" ) );
   if ( !created ) return "unknown";
   return Show::spanText( static_cast<double>( now - *created ) / 1000 );
}

std::string keyText( const Json& entry ) {
   return fmt::format( "({}, {})", clean( entry, "source-address" ),
                       clean( entry, "group" ) );
}

// Why it forwards or not, in words.
std::string reasonText( const Json& interface, const Json* rpt ) {
   std::vector<std::string> parts;
   const std::string join = textMember( interface, "join-state" );
   if ( join == "prune-pending" ) parts.emplace_back( "prune pending" );
   if ( join == "join" ) parts.emplace_back( "joined" );
   if ( flag( interface, "local-receiver-include" ) )
      parts.emplace_back( "member" );
   if ( flag( interface, "local-receiver-exclude" ) )
      parts.emplace_back( "source excluded" );
   if ( rpt != nullptr ) parts.emplace_back( "source pruned" );
   const std::string assert = textMember( interface, "assert-state" );
   if ( assert == "i-am-assert-winner" ) parts.emplace_back( "assert won" );
   if ( assert == "i-am-assert-loser" )
      parts.push_back(
         "assert lost to " +
         clean( interface.value( "assert-winner", Json() ), "address" ) );
   const std::string why = clean( interface, "not-forwarding-reason" );
   if ( why == "incoming-interface" ) parts.emplace_back( "incoming interface" );
   if ( parts.empty() && !why.empty() )
      parts.push_back( why == "no-receivers" ? "nobody asks for it" : why );
   if ( parts.empty() && flag( interface, "forwarding" ) )
      parts.emplace_back( "inherits" );
   std::string text;
   for ( const std::string& part : parts )
      text += ( text.empty() ? "" : ", " ) + part;
   return text;
}

// The interface's (S,G,rpt) state in the entry beside; null without.
const Json* rptOf( const Json* beside, const Json& interface ) {
   if ( beside == nullptr ) return nullptr;
   const auto all = beside->find( kInterfaces );
   if ( all == beside->end() || !all->is_array() ) return nullptr;
   for ( const Json& each : *all ) {
      if ( each.is_object() &&
           each.value( "name", Json() ) == interface.value( "name", Json() ) &&
           textMember( each, "rpt-state" ).starts_with( "prune" ) )
         return &each;
   }
   return nullptr;
}

bool isBeside( const Json& entry ) {
   return flag( entry, "is-rpt" ) && textMember( entry, "source-address" ) != "*";
}

std::string outText( const Json& entry ) {
   std::string text;
   for ( const Json& each : interfacesOf( entry ) ) {
      if ( flag( each, "forwarding" ) )
         text += ( text.empty() ? "" : ", " ) + clean( each, "name" );
   }
   return text.empty() ? "  out to nobody" : "  out " + text;
}

}

std::vector<StoredRoutes> storedRoutes( Reader& reader, const std::string& router,
                                        const Wanted& wanted,
                                        const RouteFilter& filter ) {
   std::map<Scope, StoredRoutes> scopes;
   const auto of = [&]( const Scope& scope ) -> StoredRoutes& {
      StoredRoutes& own = scopes[scope];
      own.scope = scope;
      return own;
   };
   reader.each( router, keyPrefix( Key::table ),
                [&]( const std::string& text, const std::string& value ) {
                   const auto key = parseKey( text );
                   if ( key && wanted.matches( key->scope ) )
                      of( key->scope ).writer =
                         textMember( parsedValue( value ), "writer" );
                } );
   using Found = std::pair<RouteKey, std::vector<Json>>;
   std::map<Scope, std::vector<Found>> found;
   reader.each( router, keyPrefix( Key::route ),
                [&]( const std::string& text, const std::string& value ) {
                   const auto key = parseKey( text );
                   if ( !key || !wanted.matches( key->scope ) ) return;
                   StoredRoutes& own = of( key->scope );
                   ++own.all;
                   if ( !filter.matches( key->stream ) ) return;
                   const Json list = parsedValue( value );
                   if ( !list.is_array() || list.empty() || !list[0].is_object() ) {
                      ++own.unreadable;
                      return;
                   }
                   if ( !matches( filter, key->stream, Show::restored( list[0] ) ) )
                      return;
                   ++own.matching;
                   std::vector<Json> entries;
                   for ( const Json& each : list ) {
                      if ( !each.is_object() ) continue;
                      entries.push_back( Show::restored( each ) );
                      narrow( entries.back(), filter );
                   }
                   found[key->scope].emplace_back( key->stream,
                                                   std::move( entries ) );
                } );
   std::vector<StoredRoutes> out;
   for ( auto& [scope, own] : scopes ) {
      auto& routes = found[scope];
      std::sort( routes.begin(), routes.end(),
                 []( const Found& a, const Found& b ) {
                    return Show::ByGroup()( a.first, b.first );
                 } );
      for ( auto& [key, entries] : routes )
         std::move( entries.begin(), entries.end(),
                    std::back_inserter( own.entries ) );
      out.push_back( std::move( own ) );
   }
   return out;
}

std::string routesText( const std::string& router, const StoredRoutes& routes,
                        int64_t now, bool oneline ) {
   std::string count = Show::countText( routes.all, "route" );
   if ( routes.matching != routes.all )
      count = fmt::format( "{} of {}", routes.matching, count );
   std::string text = fmt::format(
      "{} vrf {} {}: {}, agent {}\n", router,
      Programs::printable( routes.scope.vrf ),
      Vantu::valueToStrep( routes.scope.family ), count,
      routes.writer.empty() ? "unknown" : Programs::printable( routes.writer ) );
   if ( !routes.entries.empty() && !oneline ) text += '\n';
   size_t keys = 0, intfs = 0;
   for ( const Json& entry : routes.entries ) {
      keys = std::max( keys, keyText( entry ).size() );
      for ( const Json& each : interfacesOf( entry ) )
         intfs = std::max( intfs, clean( each, "name" ).size() );
   }
   for ( size_t i = 0; i < routes.entries.size(); ++i ) {
      const Json& entry = routes.entries[i];
      if ( isBeside( entry ) ) continue;
      const bool more =
         i + 1 < routes.entries.size() && isBeside( routes.entries[i + 1] );
      const Json* beside = more ? &routes.entries[i + 1] : nullptr;
      const bool joined =
         textMember( entry, "pimsm-state:upstream-join-state" ) == "joined";
      text += Show::lineText( fmt::format(
         "{:<{}}  {:>7}  {}  {}{}{}", keyText( entry ), keys, ageText( entry, now ),
         treeText( entry ), incomingText( entry ),
         joined ? "  upstream joined" : "", oneline ? outText( entry ) : "" ) );
      if ( oneline ) continue;
      for ( const Json& each : interfacesOf( entry ) )
         text += Show::lineText( fmt::format(
            "    {:<{}}  {:<16}  {}", clean( each, "name" ), intfs,
            flag( each, "forwarding" ) ? "forwards" : "does not forward",
            reasonText( each, rptOf( beside, each ) ) ) );
   }
   if ( routes.unreadable != 0 )
      text += fmt::format( "{} values cannot be read\n", routes.unreadable );
   return text;
}

Json routesJson( const std::string& router, StoredRoutes routes ) {
   const std::string family = Vantu::valueToStrep( routes.scope.family );
   Json tree;
   tree[family + "-route"] = std::move( routes.entries );
   Json json;
   json["router"] = router;
   json["vrf"] = routes.scope.vrf;
   json["family"] = family;
   if ( !routes.writer.empty() ) json["writer"] = routes.writer;
   json["data"] = Show::yangData( routes.scope.vrf, routes.scope.family,
                                  "topology-tree-info", std::move( tree ) );
   return json;
}

}
