#include "apps/record/History.h"

#include "apps/json/EntryChanges.h"
#include "apps/json/EventJson.h"
#include "apps/json/RouteMembers.h"
#include "apps/json/YangData.h"
#include "apps/store/Untrusted.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

Json parsed( const std::string& text ) {
   if ( text.empty() || isTooDeep( text ) ) return {};
   return Json::parse( text, nullptr, false );
}

Json member( const Json& json, const char* name ) {
   return json.is_object() ? json.value( name, Json() ) : Json();
}

std::vector<Json> linkChanges( const Json& before, const Json& after ) {
   auto lines =
      Show::listChanges( "interface", { "name" }, member( before, "interface" ),
                         member( after, "interface" ) );
   for ( Json& line : lines ) {
      line["interface"] = line["name"];
      line.erase( "name" );
   }
   for ( Json& line : Show::listChanges( "neighbor", { "interface", "address" },
                                         member( before, "neighbor" ),
                                         member( after, "neighbor" ) ) )
      lines.push_back( std::move( line ) );
   return lines;
}

// Of the agent, only whether it lives: the rest are counts.
std::vector<Json> writerChanges( const Json& before, const Json& after ) {
   const Json was = member( before, "writer" ), is = member( after, "writer" );
   if ( was == is || was.is_null() || is.is_null() ) return {};
   Json line;
   line["op"] = is == "gone" ? "writer-gone" : "writer-back";
   return { line };
}

std::vector<Json> registerChanges( const RouteKey& key, const Json& before,
                                   const Json& after ) {
   const auto list = [&key]( const Json& value ) {
      Json all = Json::array();
      if ( !value.is_object() ) return all;
      Json entry = Show::keyJson( key );
      entry.update( value );
      all.push_back( std::move( entry ) );
      return all;
   };
   return Show::listChanges( "register", { "group", "source-address" },
                             list( before ), list( after ) );
}

std::vector<Json> linesOf( const Key& key, const std::string& before,
                           const std::string& after ) {
   switch ( key.kind ) {
      case Key::route:
         return Show::routeChanges( parsed( before ), parsed( after ) );
      case Key::links:
         return linkChanges( parsed( before ), parsed( after ) );
      case Key::rps:
         return Show::listChanges( "rp", { "groups" },
                                   member( parsed( before ), "rp-range" ),
                                   member( parsed( after ), "rp-range" ) );
      case Key::table:
         return writerChanges( parsed( before ), parsed( after ) );
      case Key::registers:
         return registerChanges( key.stream, parsed( before ), parsed( after ) );
      default:
         return {};
   }
}

uint32_t versionOf( const Scope& scope ) {
   if ( scope.vrf.empty() ) return 0;
   return scope.family == AddressFamily::ipv4 ? 4 : 6;
}

std::string textOf( const Json& line, const char* name ) {
   const auto found = line.find( name );
   return found != line.end() && found->is_string() ? found->get<std::string>()
                                                    : "";
}

}

History::History( std::string router, std::string instance )
   : router_( std::move( router ) ), instance_( std::move( instance ) ) {}

Event History::eventOf( Json line, const Scope& scope, int64_t at ) {
   Json body;
   body["time"] = Show::utcText( at );
   body["router"] = router_;
   body["instance"] = instance_;
   body["seq"] = std::to_string( ++sequence_ );
   if ( !scope.vrf.empty() ) {
      body["vrf"] = scope.vrf;
      body["family"] = Show::familyName( scope.family );
   }
   for ( auto& [name, value] : line.items() ) {
      if ( !body.contains( name ) ) body[name] = value;
   }
   return { static_cast<int64_t>( sequence_ ),
            at,
            scope.vrf,
            versionOf( scope ),
            textOf( body, "group" ),
            textOf( body, "source-address" ),
            textOf( body, "op" ),
            Show::jsonText( body ) };
}

std::vector<Event> History::changes( const Key& key, const std::string& before,
                                     const std::string& after,
                                     const Touch& touch ) {
   std::vector<Event> events;
   const int64_t at = Show::utcMilliseconds( touch.first );
   for ( Json& line : linesOf( key, before, after ) ) {
      if ( touch.count > 1 ) line["merged"] = touch.count;
      if ( touch.compared ) line["resync"] = true;
      events.push_back( eventOf( std::move( line ), key.scope, at ) );
   }
   return events;
}

Event History::line( const char* op, const Scope& scope, double at,
                     const Json& more ) {
   Json json;
   json["op"] = op;
   json.update( more );
   return eventOf( std::move( json ), scope, Show::utcMilliseconds( at ) );
}

Event History::logged( const char* log,
                       const Published::EventReader::Entry& entry ) {
   Json json = Show::eventJson( entry );
   json["op"] = "log";
   json["log"] = log;
   Scope scope;
   scope.vrf = entry.event.vrf.text();
   if ( entry.event.ipVersion == 6 ) scope.family = AddressFamily::ipv6;
   return eventOf( std::move( json ), scope,
                   Show::utcMilliseconds( entry.event.at ) );
}

}
