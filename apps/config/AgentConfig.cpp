#include "apps/config/AgentConfig.h"

#include <fmt/format.h>

namespace Agent {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

constexpr const char* kAssumedInterface = "eth0";
constexpr const char* kAssumedVrf = "default";
// The number easily fits in a container's 64 MB of shared memory.
constexpr uint32_t kAssumedRouteIntfs = 60000;

InterfaceAddress assumedAddress( const IpGenAddr& router ) {
   unsigned length = router.family() == AddressFamily::ipv4 ? 24 : 64;
   return { router, IpGenPrefix( router, length ) };
}

}

bool namesAnAddress( const AgentConfig& config ) {
   for ( const VrfConfig& vrf : config.vrfs ) {
      for ( const Router::InterfaceConfig& interface : vrf.interfaces )
         if ( !interface.addresses.empty() ) return true;
   }
   return false;
}

AgentConfig assumedConfig( const IpGenAddr& router ) {
   InterfaceConfig interface;
   interface.name = Vantu::IntfId( kAssumedInterface );
   interface.addresses = { assumedAddress( router ) };
   VrfConfig vrf;
   vrf.name = L3::VrfName( kAssumedVrf );
   vrf.maxRouteIntfs = kAssumedRouteIntfs;
   vrf.interfaces = { interface };
   return { { vrf } };
}

std::string assumedConfigText( const IpGenAddr& router ) {
   return fmt::format(
      "no configuration: assuming interface {} of VRF {} with address {}/{}, no RP "
      "and no RPF route",
      kAssumedInterface, kAssumedVrf, valueToStrep( router ),
      assumedAddress( router ).subnet.length() );
}

std::unordered_map<std::string, CaptureBinding> captureBindings(
   const AgentConfig& config ) {
   std::unordered_map<std::string, CaptureBinding> bindings;
   for ( const VrfConfig& vrf : config.vrfs ) {
      for ( const InterfaceConfig& interface : vrf.interfaces ) {
         const CaptureBinding binding{ vrf.name, interface.name };
         for ( const std::string& name :
               { vrf.capture( interface.name ), std::string() } ) {
            auto [found, isNew] = bindings.try_emplace( name, binding );
            if ( !isNew ) found->second = {};
         }
      }
   }
   return bindings;
}

}
