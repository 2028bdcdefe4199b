// What the configuration says of routes and RPs: the reverse path towards an
// address and the RP of a group.
#pragma once

#include "apps/agent/config/AgentConfig.h"
#include "platform/pim/Rpf.h"

namespace Agent {

class Topology {
 public:
   // Keeps a reference.
   explicit Topology( const VrfConfig& config ) : config_( config ) {}

   struct Path {
      Routing::Pim::Rpf rpf;     // default: no route
      bool attached = false;     // the address is on the link itself
      Routing::Pim::Rpf backup;  // default: none
      bool backupAttached = false;
   };
   // By the longest prefix; the connected subnets count, with preference 0.
   Path pathTo( const Vantu::IpGenAddr& address ) const;

   // The RP configured for the group, by the longest group range, the first of
   // equal ones; the unspecified address of the group's family when there is none.
   Vantu::IpGenAddr rpOf( const Vantu::IpGenAddr& group ) const;

 private:
   const VrfConfig& config_;
};

}
