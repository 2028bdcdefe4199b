#include "engine/Topology.h"

#include "platform/pim/EmbeddedRp.h"

namespace Router {

using Routing::Pim::Rpf;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

namespace {

Rpf rpfOf( const RpfRouteConfig& route ) {
   return { route.interface,
            route.neighbor,
            static_cast<uint8_t>( route.preference ),
            { route.metric } };
}

Rpf rpfOf( const BackupConfig& backup ) {
   return { backup.interface,
            backup.neighbor,
            static_cast<uint8_t>( backup.preference ),
            { backup.metric } };
}

bool isDown( const VrfConfig& config, Vantu::IntfId name ) {
   for ( const InterfaceConfig& interface : config.interfaces )
      if ( interface.name == name ) return !interface.up || !interface.carrier;
   return false;
}

// The backup is the path while the main one's interface is down.
Topology::Path configuredPath( const VrfConfig& config,
                               const RpfRouteConfig& route ) {
   const auto& backup = route.backup;
   if ( !backup || isDown( config, backup->interface ) )
      return { rpfOf( route ), route.neighbor.isUnspecified(), {}, false };
   const bool backupAttached = backup->neighbor.isUnspecified();
   if ( isDown( config, route.interface ) )
      return { rpfOf( *backup ), backupAttached, {}, false };
   return { rpfOf( route ), route.neighbor.isUnspecified(), rpfOf( *backup ),
            backupAttached };
}

Topology::Path hostPath( const HostRoute& route ) {
   Topology::Path path;
   if ( route.interface == Vantu::IntfId() ) return path;
   // A host route has no preference; a route that the host made itself ranks as a
   // subnet.
   const uint8_t preference = route.connected ? 0 : 1;
   path.rpf = { route.interface, route.neighbor, preference, { route.metric } };
   path.attached = route.neighbor.isUnspecified();
   return path;
}

}

// Of equal prefixes the first one stays.
void Topology::configIs( const VrfConfig& config ) {
   paths_.clear();
   rps_.clear();
   embeddedRps_ = config.embeddedRp;
   for ( const InterfaceConfig& interface : config.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         paths_.insert( IpGenPrefix( own.address ), {} );
      }
   }
   for ( const InterfaceConfig& interface : config.interfaces ) {
      if ( !interface.up ) continue;
      const Rpf onLink{ interface.name, {}, 0, { 0 } };
      for ( const InterfaceAddress& own : interface.addresses ) {
         paths_.insert( own.subnet, { onLink, true, {}, false } );
      }
   }
   for ( const RpfRouteConfig& route : config.rpfRoutes ) {
      paths_.insert( route.prefix, configuredPath( config, route ) );
   }
   for ( const RpConfig& rp : config.rps ) {
      const auto family = rp.address.family();
      if ( rp.groups.empty() )
         rps_.insert( IpGenPrefix( IpGenAddr::unspecified( family ), 0 ),
                      rp.address );
      for ( const IpGenPrefix& range : rp.groups ) {
         if ( range.family() == family ) rps_.insert( range, rp.address );
      }
   }
}

Topology::Path Topology::pathTo( const IpGenAddr& address ) const {
   Path best;
   // Groups without an RP look up the unspecified address, which a default route
   // would match.
   if ( address.isUnspecified() ) return best;
   const auto configured = paths_.find( address );
   if ( configured ) best = configured->value;
   if ( hostRoutes_ ) {
      const std::optional<HostRoute> host = hostRoutes_( address );
      if ( host && ( !configured || host->length > configured->length ) )
         best = hostPath( *host );
   }
   if ( best.attached ) best.rpf.neighbor = address;
   if ( best.backupAttached ) best.backup.neighbor = address;
   return best;
}

IpGenAddr Topology::rpOf( const IpGenAddr& group ) const {
   if ( const std::optional<IpGenAddr> embedded =
           Routing::Pim::embeddedRp( group ) )
      return embeddedRps_ ? *embedded : IpGenAddr::unspecified( group.family() );
   const auto found = rps_.find( group );
   return found ? found->value : IpGenAddr::unspecified( group.family() );
}

}
