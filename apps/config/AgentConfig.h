// The programs' configuration. Plain values: ConfigReader.h reads them,
// doc/configuration.md describes the format.
#pragma once

#include <map>
#include <unordered_map>

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
   // Entries of the forwarding process for sources on links that have no route yet: all,
   // and new ones a second and link.
   uint32_t newSourceLimit = 10000;
   uint32_t newSourceRate = 1000;
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

   bool operator==( const VrfConfig& ) const = default;
};

struct AgentConfig {
   std::vector<VrfConfig> vrfs;
};

// Does some interface have an address? Without any there is nothing to do.
bool namesAnAddress( const AgentConfig& config );
inline constexpr const char* noAddressText =
   "the configuration names no interface with an address";

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

// The interfaces by the names of their captures; the empty name means the only
// interface. A name of several has an empty binding.
std::unordered_map<std::string, CaptureBinding> captureBindings(
   const AgentConfig& config );

}
