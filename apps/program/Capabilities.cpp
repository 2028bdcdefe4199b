#include "apps/program/Capabilities.h"

#include <cap-ng.h>
#include <sys/prctl.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace Programs {

namespace {

constexpr capng_type_t kOwn[] = { CAPNG_EFFECTIVE, CAPNG_PERMITTED };

std::vector<unsigned> held() {
   std::vector<unsigned> all;
   for ( unsigned each = 0; each <= CAP_LAST_CAP; ++each ) {
      const bool has = std::any_of(
         std::begin( kOwn ), std::end( kOwn ), [&]( capng_type_t set ) {
            return capng_have_capability( set, each ) != 0;
         } );
      if ( has ) all.push_back( each );
   }
   return all;
}

}

void dropCapabilities( std::initializer_list<unsigned> kept ) {
   const bool sealed = prctl( PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0 ) == 0;
   capng_get_caps_process();
   std::vector<unsigned> staying = held();
   std::erase_if( staying, [&]( unsigned each ) {
      return std::find( kept.begin(), kept.end(), each ) == kept.end();
   } );
   capng_clear( CAPNG_SELECT_ALL );
   // Without CAP_SETPCAP the bounding set stays; no program can use it any more.
   if ( capng_apply( CAPNG_SELECT_BOUNDS ) != 0 ) capng_get_caps_process();
   capng_clear( CAPNG_SELECT_CAPS );
   for ( unsigned each : staying )
      capng_update( CAPNG_ADD,
                    static_cast<capng_type_t>( CAPNG_EFFECTIVE | CAPNG_PERMITTED ),
                    each );
   capng_apply( CAPNG_SELECT_CAPS );
   capng_apply( CAPNG_SELECT_AMBIENT );
   const bool known = capng_get_caps_process() == 0;
   if ( !sealed || !known || held() != staying )
      throw std::runtime_error( "cannot drop the capabilities" );
}

}
