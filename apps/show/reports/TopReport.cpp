#include "apps/show/reports/TopReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/RouteJson.h"
#include "apps/json/RouteMembers.h"
#include "apps/show/text/TextTable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Stream = Top::Stream;

namespace {

// Nothing while the route is not in the model.
const Route* routeOf( const Mirror& mirror, const Routing::Pim::RouteKey& key ) {
   return std::as_const( *mirror.model ).route( key );
}

bool matches( const RouteFilter& filter, const Mirror& mirror,
              const Routing::Pim::RouteKey& key ) {
   if ( !filter.matches( key ) ) return false;
   if ( filter.iface.empty() && filter.iif.empty() && filter.kind.empty() )
      return true;
   const Route* route = routeOf( mirror, key );
   return route != nullptr && filter.matches( *route );
}

std::string incomingText( const Stream& stream ) {
   const Route* route = routeOf( *stream.mirror, stream.counters.key );
   if ( route == nullptr || route->incomingIntf().empty() ) return "unknown";
   return nameText( route->incomingIntf() );
}

std::string totalText( const std::vector<Stream>& streams ) {
   Rate total;
   size_t unknown = 0;
   for ( const Stream& stream : streams ) {
      if ( !stream.rate ) ++unknown;
      total.packets += stream.rate ? stream.rate->packets : 0.0;
      total.bits += stream.rate ? stream.rate->bits : 0.0;
   }
   std::string text =
      fmt::format( "{}, {}, {}", countText( streams.size(), "stream" ),
                   packetsText( total.packets ), bitsText( total.bits ) );
   if ( unknown != 0 )
      text += fmt::format( "; the rates of {} are unknown", unknown );
   return text + '\n';
}

}

Top::Top( Mirrors& mirrors, const RouteFilter& filter, bool byBits )
   : mirrors_( mirrors ), filter_( filter ), byBits_( byBits ) {
   read();
}

void Top::read() {
   std::erase_if( rates_,
                  []( const auto& each ) { return each.first->removed(); } );
   mirrors_.followVrfs();
   for ( const auto& mirror : mirrors_.all() ) {
      const auto [at, isNew] = rates_.try_emplace( mirror.get(), *mirror );
      if ( !isNew ) at->second.read();
   }
}

bool Top::known() const {
   return std::any_of( rates_.begin(), rates_.end(),
                       []( const auto& each ) { return each.second.known(); } );
}

std::vector<Stream> Top::streams() const {
   std::vector<Stream> all;
   for ( const auto& mirror : mirrors_.all() ) {
      const auto found = rates_.find( mirror.get() );
      if ( found == rates_.end() ) continue;
      for ( const auto& [key, counters] : found->second.last() ) {
         if ( matches( filter_, *mirror, key ) )
            all.push_back( { mirror.get(), counters, found->second.rate( key ) } );
      }
   }
   const auto weight = [this]( const Stream& stream ) {
      if ( !stream.rate ) return -1.0;
      return byBits_ ? stream.rate->bits : stream.rate->packets;
   };
   std::sort( all.begin(), all.end(), [&]( const Stream& a, const Stream& b ) {
      if ( weight( a ) != weight( b ) ) return weight( a ) > weight( b );
      return ByGroup()( a.counters.key, b.counters.key );
   } );
   return all;
}

std::string topText( const std::vector<Stream>& streams, size_t first ) {
   TextTable table( { { "packets/s", true },
                      { "rate", true },
                      { "packets", true },
                      { "vrf" },
                      { "in" },
                      { "stream" } } );
   for ( size_t i = 0; i < std::min( first, streams.size() ); ++i ) {
      const Stream& stream = streams[i];
      table.add(
         { stream.rate ? fmt::format( "{:.1f}", stream.rate->packets ) : "unknown",
           stream.rate ? bitsText( stream.rate->bits ) : "unknown",
           std::to_string( stream.counters.packets ), vrfText( *stream.mirror ),
           incomingText( stream ), keyText( stream.counters.key ) } );
   }
   std::string text = totalText( streams );
   return table.empty() ? text : text + '\n' + table.text();
}

Json topJson( const std::vector<Stream>& streams, size_t first,
              const Mirror& mirror ) {
   Json list = Json::array();
   for ( size_t i = 0; i < std::min( first, streams.size() ); ++i ) {
      const Stream& stream = streams[i];
      if ( stream.mirror != &mirror ) continue;
      Json json = keyJson( stream.counters.key );
      json.update( trafficJson( &stream.counters, stream.rate ) );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
