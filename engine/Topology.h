// The reverse path towards an address, and the RP of a group: from the
// configuration and, where that allows them, the host's own routes.
#pragma once

#include <optional>

#include "engine/Config.h"
#include "platform/base/Hook.h"
#include "platform/pim/Rpf.h"
#include "platform/trie/PrefixMap.h"

namespace Router {

// One of the host's own unicast routes.
struct HostRoute {
   unsigned length = 0;        // of the prefix
   Vantu::IntfId interface;    // empty: traffic there is discarded
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is directly connected
   bool connected = false;     // made by the host for its own address
   uint32_t metric = 0;
};

// The route by longest prefix; nothing without one, or where the host is not asked.
using HostRoutes =
   Mox::Hook<std::optional<HostRoute>( const Vantu::IpGenAddr& address )>;

class PIMSM_API Topology {
 public:
   explicit Topology( const VrfConfig& config, HostRoutes hostRoutes = {} )
      : hostRoutes_( std::move( hostRoutes ) ) {
      configIs( config );
   }

   // Replaces the configuration; keeps no reference to it.
   void configIs( const VrfConfig& config );

   struct Path {
      Routing::Pim::Rpf rpf;     // default: no route
      bool attached = false;     // the address is directly connected
      Routing::Pim::Rpf backup;  // default: none
      bool backupAttached = false;
   };
   // The path by longest prefix, connected subnets included with preference 0. Of
   // equal prefixes a subnet comes first, then a configured route. The router's own
   // addresses and the unspecified one have no path.
   Path pathTo( const Vantu::IpGenAddr& address ) const;

   // The RP in the group's own address (RFC 3956), which wins unless the configuration
   // refuses those; else the configured one, by the longest group range and the first
   // of equal ones. Without one the unspecified address of the group's family.
   Vantu::IpGenAddr rpOf( const Vantu::IpGenAddr& group ) const;

 private:
   HostRoutes hostRoutes_;
   // An attached path's next hop is the looked-up address itself, so no value holds
   // it.
   Routing::PrefixMap<Path> paths_;
   Routing::PrefixMap<Vantu::IpGenAddr> rps_;
   bool embeddedRps_ = true;
};

}
