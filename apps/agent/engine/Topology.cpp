#include "apps/agent/engine/Topology.h"

namespace Agent {

using Routing::Pim::Rpf;
using Vantu::IpGenAddr;

Topology::Path Topology::pathTo( const IpGenAddr& address ) const {
   Path best;
   int bestLength = -1;
   auto offer = [&]( const Vantu::IpGenPrefix& prefix, const Path& path ) {
      int length = static_cast<int>( prefix.length() );
      if ( length <= bestLength || !prefix.contains( address ) ) return;
      best = path;
      bestLength = length;
   };
   for ( const InterfaceConfig& interface : config_.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         offer( own.subnet,
                { Rpf{ interface.name, address, 0, { 0 } }, true, {}, false } );
      }
   }
   for ( const RpfRouteConfig& route : config_.rpfRoutes ) {
      bool attached = route.neighbor.isUnspecified();
      Rpf rpf{ route.interface,
               attached ? address : route.neighbor,
               static_cast<uint8_t>( route.preference ),
               { route.metric } };
      Path path{ rpf, attached, {}, false };
      if ( route.backup ) {
         path.backupAttached = route.backup->neighbor.isUnspecified();
         path.backup = { route.backup->interface,
                         path.backupAttached ? address : route.backup->neighbor,
                         static_cast<uint8_t>( route.backup->preference ),
                         { route.backup->metric } };
      }
      offer( route.prefix, path );
   }
   return best;
}

IpGenAddr Topology::rpOf( const IpGenAddr& group ) const {
   IpGenAddr best = IpGenAddr::unspecified( group.family() );
   int bestLength = -1;
   for ( const RpConfig& rp : config_.rps ) {
      if ( rp.address.family() != group.family() ) continue;
      if ( rp.groups.empty() && bestLength < 0 ) {
         best = rp.address;
         bestLength = 0;
      }
      for ( const Vantu::IpGenPrefix& range : rp.groups ) {
         int length = static_cast<int>( range.length() );
         if ( length <= bestLength || !range.contains( group ) ) continue;
         best = rp.address;
         bestLength = length;
      }
   }
   return best;
}

}
