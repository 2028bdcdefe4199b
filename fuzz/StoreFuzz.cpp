// Reads keys and values that a store may hold, whatever they are: a line of the input is a
// key, the rest a value.
#include <cstdint>
#include <string>
#include <string_view>

#include "apps/fleet/answers/History.h"
#include "apps/json/EntryChanges.h"
#include "apps/json/EventJson.h"
#include "apps/json/Trim.h"
#include "apps/json/YangData.h"
#include "apps/store/Key.h"
#include "fuzz/Check.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   using Json = nlohmann::ordered_json;
   const std::string_view input( reinterpret_cast<const char*>( data ), size );
   const size_t end = std::min( input.find( '\n' ), size );
   const std::string_view text = input.substr( 0, end );
   if ( const auto key = Fleet::parseKey( text ) )
      FUZZ_CHECK( Fleet::keyText( *key ) == text );
   const std::string value( input.substr( std::min( end + 1, size ) ) );
   const Json json = Fleet::parsedValue( value );
   // A value does not differ from itself, and from nothing by what it has.
   FUZZ_CHECK( Show::routeChanges( json, json ).empty() );
   for ( const Json& line : Show::routeChanges( json, Json() ) )
      Show::jsonText( line );
   const Json whole = Show::restored( json );
   FUZZ_CHECK( Show::restored( whole ) == whole );
   Show::eventOf( json );
   Fleet::historyText( { "r", { 0, 0, "v", 4, "g", "s", "add", value }, {} } );
   Fleet::historyText( { "r", { 0, 0, "v", 4, "g", "s", "log", value }, {} } );
   return 0;
}
