#include "engine/Config.h"

namespace Router {

bool isOwn( const VrfConfig& vrf, const Vantu::IpGenAddr& address ) {
   for ( const InterfaceConfig& interface : vrf.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address == address ) return true;
      }
   }
   return false;
}

}
