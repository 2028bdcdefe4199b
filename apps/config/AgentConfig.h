// The programs' configuration. Plain values: ConfigReader.h reads them,
// doc/configuration.md describes the format.
#pragma once

#include <map>

#include "apps/config/RouterNames.h"
#include "engine/Config.h"

namespace Agent {

// A VRF with both address families.
struct VrfConfig : Router::VrfConfig {
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // The kernel's multicast routing table for this VRF. Nothing: each family's own
   // default, which the kernel uses where no rule says otherwise.
   std::optional<uint32_t> mrouteTable = std::nullopt;
   // Takes reverse paths from this kernel table of the host's routes, too.
   bool kernelRpf = false;
   uint32_t routeTable = 254;
   // The name of an interface's capture where it differs from the interface's own.
   std::map<Vantu::IntfId, std::string> captures;

   std::string capture( Vantu::IntfId interface ) const {
      auto named = captures.find( interface );
      return named == captures.end() ? std::string( interface.name() )
                                     : named->second;
   }
};

struct AgentConfig {
   std::vector<VrfConfig> vrfs;
};

// The configuration assumed when none is given: the interface eth0 of the VRF
// "default" with that address, its subnet /24 or /64; no RP, no RPF route.
AgentConfig assumedConfig( const Vantu::IpGenAddr& router );

// The agent's message about the assumed configuration.
std::string assumedConfigText( const Vantu::IpGenAddr& router );

// An interface and its VRF; empty: none.
struct CaptureBinding {
   L3::VrfName vrf;
   Vantu::IntfId interface;
};

// The interface to which the capture of that name is bound. The empty name means
// the only interface. Empty when there is none, or several.
CaptureBinding captureBinding( const AgentConfig& config,
                               const std::string& capture );

}
