// What the programs are told at their start. Plain values: the reading is in
// ConfigReader.h, the format in doc/configuration.md.
#pragma once

#include <map>

#include "apps/config/RouterNames.h"
#include "engine/Config.h"

namespace Agent {

// Both address families.
struct VrfConfig : Router::VrfConfig {
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // The kernel's multicast routing table that stands for this VRF; nothing: the one
   // that it looks into where no rule says otherwise, another for each family.
   std::optional<uint32_t> mrouteTable = std::nullopt;
   // Reverse paths come from the host's own routes, too, of this table of the kernel.
   bool kernelRpf = false;
   uint32_t routeTable = 254;
   // By interface, where it is not the interface's own name: the capture whose packets
   // arrive there.
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

// What is assumed without a configuration: the interface eth0 of the VRF "default"
// with that address, its subnet /24 or /64; no RP, no RPF route.
AgentConfig assumedConfig( const Vantu::IpGenAddr& router );

// The sentence in which the agent says so.
std::string assumedConfigText( const Vantu::IpGenAddr& router );

// An interface and the VRF it is of; empty: none.
struct CaptureBinding {
   L3::VrfName vrf;
   Vantu::IntfId interface;
};

// The interface to which the capture of that name is bound; the empty name stands
// for the only interface there is. Empty when there is none, or several.
CaptureBinding captureBinding( const AgentConfig& config,
                               const std::string& capture );

}
