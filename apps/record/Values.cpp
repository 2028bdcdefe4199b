#include "apps/record/Values.h"

#include "apps/json/LinkJson.h"
#include "apps/json/RegisterJson.h"
#include "apps/json/RpJson.h"
#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/mirror/Events.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

Values::Values( Watched& watched, const std::set<Key>& tooLarge )
   : watched_( watched ),
     tooLarge_( tooLarge ),
     mirror_( watched.mirror() ),
     entries_( watched.mirror(), all_ ) {}

std::optional<Value> Values::of( const Key& key ) const {
   switch ( key.kind ) {
      case Key::route:
         return route( key.stream );
      case Key::registers:
         return registers( key.stream );
      case Key::links:
         return valueOf( Show::linksJson( mirror_ ) );
      case Key::rps:
         return rps();
      case Key::table:
         return table();
      case Key::rates:
         return watched_.samples().page( key.page );
      case Key::top:
         return watched_.samples().top();
      default:
         return std::nullopt;
   }
}

// A time on the wall moves with its clock by some ms between two looks: the digest has
// the time of the tables instead.
std::optional<Value> Values::route( const RouteKey& key ) const {
   const OneRoute::Result found = watched_.oneRoute().load( key );
   if ( found == OneRoute::unreadable ) throw Unreadable();
   if ( found == OneRoute::absent ) return std::nullopt;
   const Show::Route& route = watched_.oneRoute().route();
   Json list = Json::array();
   for ( Json& entry : entries_.of( route ) ) list.push_back( std::move( entry ) );
   const double created = route.creationTime();
   const std::string now = Show::jsonText( list );
   const uint64_t digest =
      digestOf( now + ' ' + bootId() + ' ' + std::to_string( created ) );
   if ( created == 0.0 ) return Value{ now, digest };
   list.front()["pimsm-state:created"] = Show::utcOf( created );
   return Value{ Show::jsonText( list ), digest };
}

std::optional<Value> Values::registers( const RouteKey& key ) const {
   Json json = Json::object();
   const auto& tables = *mirror_.registers;
   const auto add = [&]( const char* name, const auto& table ) {
      if ( table.has( key ) ) json[name] = true;
   };
   add( "register-oif", tables.registerOif() );
   add( "no-register-oif", tables.noRegisterOif() );
   add( "dr-discovered", tables.drDiscoveredSg() );
   add( "anycast-discovered", tables.anycastDiscoveredSg() );
   if ( const auto advertised = mirror_.advertised->coll( key ) ) {
      Json& own = json["advertised"];
      own["rp-address"] = Vantu::valueToStrep( advertised->rp );
      if ( advertised->anycastDiscovered ) own["anycast-discovered"] = true;
   }
   if ( json.empty() ) return std::nullopt;
   return valueOf( json );
}

// Lists of two routers have names of their own: what they permit is compared.
Value Values::rps() const {
   Json list = Show::rpsJson( Show::selectRps( mirror_, {} ) );
   const Published::GroupRanges ranges( mirror_.family, *mirror_.agent );
   if ( const auto& permitted = ranges.sourceSpecificList() ) {
      for ( Json& each : list ) {
         if ( each["rule"] != "source-specific" ) continue;
         Json& prefixes = each["prefixes"] = Json::array();
         for ( const auto& prefix : *permitted )
            prefixes.push_back( Vantu::valueToStrep( prefix ) );
      }
   }
   return valueOf( { { "rp-range", std::move( list ) } } );
}

Value Values::table() const {
   Json json;
   json["writer"] = mirror_.writerText();
   if ( const auto since = watched_.goneSince() )
      json["since"] = Show::utcOf( *since );
   if ( Show::isReady( mirror_.mfib->cache() ) )
      json["forwarder"] = mirror_.mfib->cache().writerAlive() ? "running" : "gone";
   const Watched::Counts counts = watched_.counts();
   json["wc-routes"] = counts.wildcards;
   json["sg-routes"] = counts.sources;
   if ( const uint64_t damaged = mirror_.unreadable() )
      json["unreadable"] = std::to_string( damaged );
   constexpr size_t kNamed = 10;
   for ( const Key& key : tooLarge_ )
      if ( key.scope == watched_.scope() && json["too-large"].size() < kNamed )
         json["too-large"].push_back( keyText( key ) );
   Json& all = json["table"] = Json::array();
   for ( const MoxBrane::TableBase* table : Show::agentTables( mirror_ ) ) {
      if ( !Show::isReady( *table ) || table->size() == 0 ) continue;
      all.push_back( { { "name", Show::tableName( *table ) },
                       { "used", table->size() },
                       { "capacity", table->capacity() } } );
   }
   return valueOf( json );
}

}
