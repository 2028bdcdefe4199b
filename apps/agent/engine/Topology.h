// What this router knows of the network: the reverse path towards an address and
// the RP of a group, as the configuration says and, where that asks for them, the
// host's own routes.
#pragma once

#include "apps/agent/config/AgentConfig.h"
#include "apps/agent/engine/KernelRoutes.h"
#include "platform/pim/Rpf.h"

namespace Agent {

class Topology {
 public:
   // Keeps both. `kernel` may be null: there are no such routes.
   explicit Topology( const VrfConfig& config,
                      const KernelRoutes* kernel = nullptr )
      : config_( config ), kernel_( kernel ) {}

   struct Path {
      Routing::Pim::Rpf rpf;     // default: no route
      bool attached = false;     // the address is on the link itself
      Routing::Pim::Rpf backup;  // default: none
      bool backupAttached = false;
   };
   // By the longest prefix; the connected subnets count, with preference 0. Of equal
   // prefixes a subnet comes first, then a configured route. The router's own
   // addresses have no path, nor has the unspecified one.
   Path pathTo( const Vantu::IpGenAddr& address ) const;

   // The RP configured for the group, by the longest group range, the first of
   // equal ones; the unspecified address of the group's family when there is none.
   Vantu::IpGenAddr rpOf( const Vantu::IpGenAddr& group ) const;

 private:
   Path configuredPath( const RpfRouteConfig& route,
                        const Vantu::IpGenAddr& address ) const;

   const VrfConfig& config_;
   const KernelRoutes* kernel_;
};

}
