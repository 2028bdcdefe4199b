#include "apps/record/Samples.h"

#include <algorithm>

#include "apps/json/RouteJson.h"
#include "apps/mirror/Events.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

Samples::Samples( const Show::Mirror& mirror, double interval, size_t top )
   : mirror_( mirror ), interval_( interval ), top_( top ), rates_( mirror ) {}

std::set<uint32_t> Samples::take( double now ) {
   constexpr size_t kKept = 2;
   rates_.read();
   at_ = now;
   std::set<uint32_t> changed;
   if ( !rates_.known() ) {
      // Nobody counts: that nothing grew says nothing.
      for ( uint32_t page = 0; page < Key::pages; ++page ) {
         for ( auto& [key, stream] : pages_[page] ) {
            if ( stream.grew.empty() ) continue;
            stream.grew.clear();
            changed.insert( page );
         }
      }
      return changed;
   }
   for ( const auto& [key, counters] : rates_.last() ) {
      const uint32_t page = pageOf( key );
      const auto [at, isNew] = pages_[page].try_emplace( key );
      Stream& stream = at->second;
      // Counters that began anew have grown by what they say.
      const uint64_t grew = counters.packets < stream.packets
                               ? counters.packets
                               : counters.packets - stream.packets;
      const bool still = grew == 0 && stream.grew.size() == kKept &&
                         stream.grew == std::deque<uint64_t>( kKept, 0 );
      stream.packets = counters.packets;
      if ( !isNew ) stream.grew.push_front( grew );
      if ( stream.grew.size() > kKept ) stream.grew.pop_back();
      if ( !still ) changed.insert( page );
   }
   for ( uint32_t page = 0; page < Key::pages; ++page ) {
      const size_t gone = std::erase_if( pages_[page], [&]( const auto& stream ) {
         return !rates_.last().contains( stream.first );
      } );
      if ( gone != 0 ) changed.insert( page );
   }
   return changed;
}

Json Samples::json( const RouteKey& key, const Stream& stream ) const {
   Json json = Show::keyJson( key );
   json.update( Show::trafficJson( rates_.counters( key ), rates_.rate( key ) ) );
   Json& samples = json["samples"] = Json::array();
   for ( const uint64_t grew : stream.grew )
      samples.push_back( std::to_string( grew ) );
   return json;
}

Json Samples::frame() const {
   Json json;
   json["at"] = Show::utcOf( at_ );
   json["sample"] = interval_;
   json["stream"] = Json::array();
   return json;
}

std::optional<Value> Samples::page( uint32_t page ) const {
   const auto& streams = pages_[page];
   if ( streams.empty() ) return std::nullopt;
   std::vector<RouteKey> keys;
   for ( const auto& [key, stream] : streams ) keys.push_back( key );
   std::sort( keys.begin(), keys.end(), Show::ByGroup() );
   Json value = frame();
   for ( const RouteKey& key : keys )
      value["stream"].push_back( json( key, streams.at( key ) ) );
   return valueOf( value );
}

std::optional<Value> Samples::top() const {
   if ( !rates_.known() ) return std::nullopt;
   std::vector<std::pair<double, RouteKey>> all;
   for ( const auto& [key, counters] : rates_.last() ) {
      if ( const auto rate = rates_.rate( key ) )
         all.emplace_back( -rate->bits, key );
   }
   const size_t count = std::min( top_, all.size() );
   std::partial_sort( all.begin(), all.begin() + static_cast<ptrdiff_t>( count ),
                      all.end() );
   Json value = frame();
   for ( size_t i = 0; i < count; ++i ) {
      const RouteKey& key = all[i].second;
      value["stream"].push_back( json( key, pages_[pageOf( key )].at( key ) ) );
   }
   return valueOf( value );
}

}
