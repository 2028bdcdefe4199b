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

CaptureBinding captureBinding( const AgentConfig& config,
                               const std::string& capture ) {
   CaptureBinding found;
   for ( const VrfConfig& vrf : config.vrfs ) {
      for ( const InterfaceConfig& interface : vrf.interfaces ) {
         if ( !capture.empty() && vrf.capture( interface.name ) != capture )
            continue;
         if ( !found.interface.empty() ) return {};
         found = { vrf.name, interface.name };
      }
   }
   return found;
}

}
