#include "apps/agent/FamilyInstance.h"

#include "apps/agent/MountNotes.h"

namespace Agent {

FamilyInstance::FamilyInstance( Vantu::AddressFamily family,
                                const VrfConfig& config,
                                Corvex::EntityManager& manager, Mox::Clock& real,
                                AgentClock& clock, RouterCounters& counters,
                                const KernelRoutes* kernelRoutes )
   : config_( config ),
     router_( manager, real, family, config, counters,
              { [this, kernelRoutes]( const Vantu::IpGenAddr& address ) {
                  return hostRoute( kernelRoutes, address );
               },
                config.maxRoutes, config.maxRouteIntfs, &clock } ) {}

// The kernel's route, for VRFs that also take reverse paths from the kernel.
std::optional<HostRoute> FamilyInstance::hostRoute(
   const KernelRoutes* routes, const Vantu::IpGenAddr& address ) const {
   if ( routes == nullptr || !config_.kernelRpf ) return std::nullopt;
   auto found = routes->find( config_.routeTable, address );
   if ( !found ) return std::nullopt;
   const KernelRoute& route = found->value;
   return HostRoute{ found->length, route.interface, route.neighbor,
                     route.connected, route.metric };
}

std::vector<std::string> FamilyInstance::mountNotes() const {
   return Agent::mountNotes(
      "vrf " + config_.name.name() + ' ' + Vantu::valueToStrep( family() ),
      router_.writer().entities() );
}

void FamilyInstance::configIs( const VrfConfig& config ) {
   config_ = config;
   router_.configIs( config );
}

}
