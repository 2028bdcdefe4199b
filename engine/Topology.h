// What this router knows of the network: the reverse path towards an address and
// the RP of a group, as the configuration says and, where that asks for them, the
// host's own routes.
#pragma once

#include <optional>

#include "engine/Config.h"
#include "platform/base/Hook.h"
#include "platform/pim/Rpf.h"
#include "platform/trie/PrefixMap.h"

namespace Router {

// A unicast route of the host's own.
struct HostRoute {
   unsigned length = 0;        // of the prefix
   Vantu::IntfId interface;    // empty: what goes there is thrown away
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is on the link itself
   bool connected = false;     // made by the host with an address of its own
   uint32_t metric = 0;
};

// By the longest prefix; nothing where there is none, or where the host is not asked.
using HostRoutes =
   Mox::Hook<std::optional<HostRoute>( const Vantu::IpGenAddr& address )>;

class PIMSM_API Topology {
 public:
   explicit Topology( const VrfConfig& config, HostRoutes hostRoutes = {} )
      : hostRoutes_( std::move( hostRoutes ) ) {
      configIs( config );
   }

   // Takes the place of the present configuration; nothing of it is kept by reference.
   void configIs( const VrfConfig& config );

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
   HostRoutes hostRoutes_;
   // Where a path is attached, the address itself is the next hop and stands in no
   // value.
   Routing::PrefixMap<Path> paths_;
   Routing::PrefixMap<Vantu::IpGenAddr> rps_;
};

}
