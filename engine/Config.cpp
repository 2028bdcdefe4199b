#include "engine/Config.h"

#include <algorithm>

namespace Router {

bool AnycastRpConfig::has( const Vantu::IpGenAddr& peer ) const {
   return std::find( peers.begin(), peers.end(), peer ) != peers.end();
}

const AnycastRpConfig* anycastRp( const VrfConfig& vrf,
                                  const Vantu::IpGenAddr& rp ) {
   for ( const AnycastRpConfig& each : vrf.anycastRps )
      if ( each.address == rp ) return &each;
   return nullptr;
}

bool isOwn( const VrfConfig& vrf, const Vantu::IpGenAddr& address ) {
   for ( const InterfaceConfig& interface : vrf.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address == address ) return true;
      }
   }
   return false;
}

Vantu::IpGenAddr registerSource( const VrfConfig& vrf, Vantu::IntfId intfId,
                                 Vantu::AddressFamily family ) {
   const bool given = !vrf.registerSource.empty();
   return globalAddress( vrf, given ? vrf.registerSource : intfId, family );
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
