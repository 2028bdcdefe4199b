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

Vantu::IpGenAddr globalAddress( const VrfConfig& vrf, Vantu::IntfId intfId,
                                Vantu::AddressFamily family ) {
   auto other = Vantu::IpGenAddr::unspecified( family );
   for ( const InterfaceConfig& interface : vrf.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address.family() != family || own.address.isLinkLocal() )
            continue;
         if ( interface.name == intfId ) return own.address;
         if ( other.isUnspecified() ) other = own.address;
      }
   }
   return other;
}

}
