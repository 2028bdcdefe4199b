#include "apps/agent/FamilyInstance.h"

#include "apps/agent/MountNotes.h"

namespace Agent {
namespace {

std::map<Vantu::IntfId, std::string> devicesOf( const VrfConfig& config ) {
   std::map<Vantu::IntfId, std::string> devices;
   for ( const InterfaceConfig& interface : config.interfaces )
      devices[interface.name] = config.capture( interface.name );
   return devices;
}

}

FamilyInstance::FamilyInstance( Vantu::AddressFamily family,
                                const VrfConfig& config,
                                Corvex::EntityManager& manager, Mox::Clock& real,
                                AgentClock& clock, RouterCounters& counters,
                                const KernelRoutes* kernelRoutes, Wire* wire,
                                Journal::Sink events )
   : config_( config ),
     devices_( devicesOf( config ) ),
     router_( manager, real, family, config, counters,
              { [this, kernelRoutes]( const Vantu::IpGenAddr& address ) {
                  return hostRoute( kernelRoutes, address );
               },
                config.maxRoutes, config.maxRouteIntfs, &clock, speech( wire ),
                std::move( events ) } ) {}

Speech FamilyInstance::speech( Wire* wire ) const {
   if ( wire == nullptr ) return {};
   return { [this, wire]( const Outgoing& out ) {
              return wire->send(
                 config_.name,
                 out.intfId.empty() ? std::string() : devices_.at( out.intfId ),
                 out );
           },
            [wire] { return wire->uniform(); } };
}

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
   return ::Agent::mountNotes(
      "vrf " + config_.name.name() + ' ' + Vantu::valueToStrep( family() ),
      router_.writer().entities() );
}

void FamilyInstance::configIs( const VrfConfig& config ) {
   config_ = config;
   std::map<Vantu::IntfId, std::string> devices = devicesOf( config );
   std::swap( devices_, devices );
   // An interface that goes still says goodbye.
   devices_.merge( devices );
   router_.configIs( config );
   devices_ = devicesOf( config );
}

}
