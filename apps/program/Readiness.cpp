#include "apps/program/Readiness.h"

#include <systemd/sd-daemon.h>

namespace Programs {

void tellParentReady() {
   sd_notify( 0, "READY=1" );
}

void tellParentState( const std::string& text ) {
   sd_notify( 0, ( "STATUS=" + text ).c_str() );
}

}
