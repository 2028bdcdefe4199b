#include "apps/fleet/answers/Routers.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
#include "apps/store/Untrusted.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

Router routerOf( Reader& reader, const std::string& name ) {
   Router router;
   router.name = name;
   try {
      router.lives = reader.lives( name );
      const std::string key = keyText( {} );
      const auto values = reader.values( name, { key } );
      const auto found = values.find( key );
      if ( found == values.end() ) return router;
      router.recorder = found->second;
      const Json json = parsedValue( router.recorder );
      router.complete = json.is_object() &&
                        json.value( "complete", Json() ) == true &&
                        textMember( json, "instance" ) == reader.instance( name );
   } catch ( const StoreFormat& e ) {
      router.problem = e.what();
      router.format = true;
   } catch ( const Mox::Error& e ) {
      // One router's store says nothing of the others'.
      router.problem = e.what();
   }
   return router;
}

const char* stateText( const Router& router ) {
   if ( !router.problem.empty() ) return "unreadable";
   if ( !router.lives ) return "stale";
   return router.complete ? "live" : "incomplete";
}

// The values of one router that tell of its agents.
struct Totals {
   std::vector<std::string> agents;  // "default ipv4 running"
   uint64_t wildcards = 0, sources = 0;
};

uint64_t numberMember( const Json& json, const char* name ) {
   const Json value = json.is_object() ? json.value( name, Json() ) : Json();
   return value.is_number_unsigned() ? value.get<uint64_t>() : 0;
}

Totals totalsOf( Reader& reader, const Router& router ) {
   Totals totals;
   if ( !router.problem.empty() ) return totals;
   reader.each( router.name, keyPrefix( Key::table ),
                [&]( const std::string& text, const std::string& value ) {
                   const auto key = parseKey( text );
                   const Json json = parsedValue( value );
                   if ( !key || !json.is_object() ) return;
                   totals.agents.push_back( fmt::format(
                      "{} {} {}", Programs::printable( key->scope.vrf ),
                      Vantu::valueToStrep( key->scope.family ),
                      Programs::printable( textMember( json, "writer" ) ) ) );
                   totals.wildcards += numberMember( json, "wc-routes" );
                   totals.sources += numberMember( json, "sg-routes" );
                } );
   return totals;
}

std::string joined( const std::vector<std::string>& parts ) {
   std::string text;
   for ( const std::string& part : parts )
      text += ( text.empty() ? "" : ", " ) + part;
   return text;
}

}

bool Wanted::matches( const Scope& scope ) const {
   const uint32_t version = scope.family == AddressFamily::ipv4 ? 4 : 6;
   return ( vrf == "all" || vrf == scope.vrf ) &&
          ( ipVersion == 0 || ipVersion == version );
}

Json parsedValue( const std::string& text ) {
   if ( text.size() > largestValue || isTooDeep( text ) ) return {};
   Json json = Json::parse( text, nullptr, false );
   return json.is_discarded() ? Json() : json;
}

std::string textMember( const Json& json, const char* name ) {
   const Json value = json.is_object() ? json.value( name, Json() ) : Json();
   return value.is_string() ? value.get<std::string>() : "";
}

std::vector<Router> routersOf( Reader& reader, const std::string& name ) {
   std::vector<std::string> names = reader.routers();
   if ( names.empty() )
      throw StoreMissing(
         "the store has no router: start pimsm-record, or name its --store" );
   if ( name != "all" ) {
      if ( std::find( names.begin(), names.end(), name ) == names.end() )
         throw StoreMissing( "the store has no router " + name + ": there are " +
                             joined( names ) );
      names = { name };
   }
   reader.foresee( names, { keyText( {} ) } );
   std::vector<Router> routers;
   for ( const std::string& each : names )
      routers.push_back( routerOf( reader, each ) );
   return routers;
}

std::string doubtText( const Router& router ) {
   if ( !router.problem.empty() ) return router.name + ": " + router.problem;
   if ( !router.lives )
      return router.name + ": nobody records it now; this is its last state";
   if ( !router.complete )
      return router.name + ": its recorder is still comparing; some may be old";
   return "";
}

std::string routersText( Reader& reader, const std::vector<Router>& routers ) {
   Show::TextTable table( { { "router" },
                            { "state" },
                            { "(*,G)", true },
                            { "(S,G)", true },
                            { "recorder" },
                            { "agents" } } );
   for ( const Router& router : routers ) {
      const Totals totals = totalsOf( reader, router );
      const Json recorder = parsedValue( router.recorder );
      const std::string since =
         recorder.is_object()
            ? fmt::format( "{} since {}", textMember( recorder, "version" ),
                           textMember( recorder, "started" ) )
            : router.problem;
      table.add( { router.name, stateText( router ),
                   std::to_string( totals.wildcards ),
                   std::to_string( totals.sources ), Programs::printable( since ),
                   joined( totals.agents ) } );
   }
   return table.text();
}

Json routersJson( Reader& reader, const std::vector<Router>& routers ) {
   Json list = Json::array();
   for ( const Router& router : routers ) {
      const Totals totals = totalsOf( reader, router );
      Json json;
      json["router"] = router.name;
      json["state"] = stateText( router );
      if ( !router.problem.empty() ) json["problem"] = router.problem;
      json["wc-routes"] = totals.wildcards;
      json["sg-routes"] = totals.sources;
      json["agents"] = totals.agents;
      json["recorder"] = parsedValue( router.recorder );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
