#include "apps/program/Capabilities.h"

#include <cap-ng.h>
#include <sys/prctl.h>

#include <stdexcept>

namespace Programs {

void dropCapabilities() {
   bool sealed = prctl( PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0 ) == 0;
   capng_get_caps_process();
   capng_clear( CAPNG_SELECT_ALL );
   // Without CAP_SETPCAP the bounding set stays; nothing can draw on it any more.
   if ( capng_apply( CAPNG_SELECT_BOUNDS ) != 0 ) capng_get_caps_process();
   capng_clear( CAPNG_SELECT_CAPS );
   capng_apply( CAPNG_SELECT_CAPS );
   capng_apply( CAPNG_SELECT_AMBIENT );
   bool known = capng_get_caps_process() == 0;
   if ( !sealed || !known ||
        capng_have_capabilities( CAPNG_SELECT_CAPS ) != CAPNG_NONE )
      throw std::runtime_error( "cannot drop the capabilities" );
}

}
