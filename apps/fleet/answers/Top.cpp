#include "apps/fleet/answers/Top.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <tuple>

#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
#include "apps/show/text/Words.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

// Numbers that JSON holds as text, as RFC 7951 wants it for 64 bits.
template <class Number>
Number numberMember( const Json& json, const char* name ) {
   const std::string text = textMember( json, name );
   Number number = 0;
   std::from_chars( text.data(), text.data() + text.size(), number );
   return number;
}

using StreamKey = std::tuple<std::string, std::string, std::string>;

void take( std::map<StreamKey, FleetStream>& all, const std::string& router,
           const Scope& scope, const Json& stream ) {
   const std::string group = textMember( stream, "group" );
   const std::string source = textMember( stream, "source-address" );
   if ( group.empty() || source.empty() ) return;
   FleetStream& own = all[{ scope.vrf, group, source }];
   own.vrf = scope.vrf;
   own.group = group;
   own.source = source;
   ++own.routers;
   const auto bits = numberMember<double>( stream, "bits-per-second" );
   if ( own.routers > 1 && bits <= own.bits ) return;
   own.fastest = router;
   own.bits = bits;
   own.packets = numberMember<double>( stream, "packets-per-second" );
   own.count = numberMember<uint64_t>( stream, "packets" );
}

}

std::vector<FleetStream> topStreams( Reader& reader,
                                     const std::vector<Router>& routers,
                                     const Wanted& wanted, TopBy by,
                                     size_t first ) {
   std::map<StreamKey, FleetStream> all;
   for ( const Router& router : routers ) {
      if ( !router.problem.empty() ) continue;
      reader.each( router.name, keyPrefix( Key::top ),
                   [&]( const std::string& text, const std::string& value ) {
                      const auto key = parseKey( text );
                      if ( !key || !wanted.matches( key->scope ) ) return;
                      const Json json = parsedValue( value );
                      const Json list =
                         json.is_object() ? json.value( "stream", Json() ) : Json();
                      if ( !list.is_array() ) return;
                      for ( const Json& stream : list )
                         take( all, router.name, key->scope, stream );
                   } );
   }
   std::vector<FleetStream> streams;
   for ( auto& [key, stream] : all ) streams.push_back( std::move( stream ) );
   const auto weight = [by]( const FleetStream& stream ) {
      if ( by == TopBy::routers ) return static_cast<double>( stream.routers );
      return by == TopBy::rate ? stream.bits : stream.packets;
   };
   std::stable_sort( streams.begin(), streams.end(),
                     [&]( const FleetStream& a, const FleetStream& b ) {
                        return weight( a ) > weight( b );
                     } );
   if ( streams.size() > first ) streams.resize( first );
   return streams;
}

std::string topText( const std::vector<FleetStream>& streams ) {
   using Programs::printable;
   Show::TextTable table( { { "packets/s", true },
                            { "rate", true },
                            { "packets", true },
                            { "routers", true },
                            { "fastest" },
                            { "vrf" },
                            { "stream" } } );
   for ( const FleetStream& each : streams )
      table.add( { fmt::format( "{:.1f}", each.packets ),
                   Show::bitsText( each.bits ), std::to_string( each.count ),
                   std::to_string( each.routers ), each.fastest,
                   printable( each.vrf ),
                   fmt::format( "({}, {})", printable( each.source ),
                                printable( each.group ) ) } );
   return table.empty() ? "no router lists a stream\n" : table.text();
}

Json topJson( const std::vector<FleetStream>& streams ) {
   Json list = Json::array();
   for ( const FleetStream& each : streams )
      list.push_back(
         { { "vrf", each.vrf },
           { "group", each.group },
           { "source-address", each.source },
           { "routers", each.routers },
           { "fastest", each.fastest },
           { "packets", std::to_string( each.count ) },
           { "packets-per-second", fmt::format( "{:.1f}", each.packets ) },
           { "bits-per-second", fmt::format( "{:.0f}", each.bits ) } } );
   return list;
}

}
