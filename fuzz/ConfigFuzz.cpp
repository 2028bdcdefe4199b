// The configuration reader: any text gives a configuration or an error with its
// place.

#include <string>

#include "apps/config/ConfigReader.h"
#include "fuzz/Check.h"

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   std::string text( reinterpret_cast<const char*>( data ), size );
   try {
      Agent::AgentConfig config = Agent::parseConfig( text, "fuzz" );
      FUZZ_CHECK( !config.vrfs.empty() );
      for ( const Agent::VrfConfig& vrf : config.vrfs ) {
         FUZZ_CHECK( !vrf.name.empty() );
         for ( const Agent::RpfRouteConfig& route : vrf.rpfRoutes )
            FUZZ_CHECK( !route.interface.empty() );
      }
      FUZZ_CHECK( Agent::configFaults( text, "fuzz" ).empty() );
   } catch ( const Agent::ConfigError& e ) {
      FUZZ_CHECK( std::string( e.what() ).compare( 0, 5, "fuzz:" ) == 0 );
      FUZZ_CHECK( !Agent::configFaults( text, "fuzz" ).empty() );
   }
   return 0;
}
