#include "engine/Topology.h"

namespace Router {

using Routing::Pim::Rpf;
using Vantu::IpGenAddr;

Topology::Path Topology::configuredPath( const RpfRouteConfig& route,
                                         const IpGenAddr& address ) const {
   bool attached = route.neighbor.isUnspecified();
   Rpf rpf{ route.interface,
            attached ? address : route.neighbor,
            static_cast<uint8_t>( route.preference ),
            { route.metric } };
   Path path{ rpf, attached, {}, false };
   if ( !route.backup ) return path;
   path.backupAttached = route.backup->neighbor.isUnspecified();
   path.backup = { route.backup->interface,
                   path.backupAttached ? address : route.backup->neighbor,
                   static_cast<uint8_t>( route.backup->preference ),
                   { route.backup->metric } };
   return path;
}

Topology::Path Topology::pathTo( const IpGenAddr& address ) const {
   Path best;
   int bestLength = -1;
   // Groups without an RP ask for the unspecified address, and a default route has it.
   if ( address.isUnspecified() || isOwn( config_, address ) ) return best;
   auto offers = [&]( const Vantu::IpGenPrefix& prefix ) {
      int length = static_cast<int>( prefix.length() );
      if ( length <= bestLength || !prefix.contains( address ) ) return false;
      bestLength = length;
      return true;
   };
   for ( const InterfaceConfig& interface : config_.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( offers( own.subnet ) )
            best = { Rpf{ interface.name, address, 0, { 0 } }, true, {}, false };
      }
   }
   for ( const RpfRouteConfig& route : config_.rpfRoutes ) {
      if ( offers( route.prefix ) ) best = configuredPath( route, address );
   }
   std::optional<HostRoute> route;
   if ( hostRoutes_ ) route = hostRoutes_( address );
   if ( !route || static_cast<int>( route->length ) <= bestLength ) return best;
   if ( route->interface == Vantu::IntfId() ) return {};
   bool attached = route->neighbor.isUnspecified();
   // A host has no preferences; what it made itself is as good as a subnet here.
   uint8_t preference = route->connected ? 0 : 1;
   return { Rpf{ route->interface,
                 attached ? address : route->neighbor,
                 preference,
                 { route->metric } },
            attached,
            {},
            false };
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
