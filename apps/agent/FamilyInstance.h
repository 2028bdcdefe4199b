// One VRF and address family of the agent, by its configuration: the library's
// router, with the host's routes where the VRF asks for them. Event-loop thread.
#pragma once

#include "apps/agent/AgentClock.h"
#include "apps/agent/KernelRoutes.h"
#include "apps/agent/wire/Wire.h"
#include "apps/config/AgentConfig.h"
#include "router/VrfRouter.h"

namespace Agent {

class FamilyInstance {
 public:
   // Manager, clocks, counters, kernel routes (null: none) and wire (null: it listens
   // only) outlive the instance.
   // Throws the exceptions of mounting (Brane::SecondWriterError,
   // Brane::CreateError).
   FamilyInstance( Vantu::AddressFamily family, const VrfConfig& config,
                   Corvex::EntityManager& manager, Mox::Clock& real,
                   AgentClock& clock, RouterCounters& counters,
                   const KernelRoutes* kernelRoutes = nullptr, Wire* wire = nullptr,
                   Journal::Sink events = {} );

   Vantu::AddressFamily family() const { return router_.family(); }
   const VrfConfig& config() const { return config_; }
   VrfRouter& router() { return router_; }
   // Takes leave of the neighbours and removes the tables. Destroy it next.
   void leave() {
      router_.sayGoodbye();
      router_.retire();
   }
   const VrfRouter& router() const { return router_; }

   // A line for each table that was not taken over as it stood: of another layout
   // or boot, or damaged.
   std::vector<std::string> mountNotes() const;

   // Replaces the configuration of the same VRF. An interface that it lacks says
   // goodbye. Its limits count at the next mount only.
   void configIs( const VrfConfig& config );

 private:
   std::optional<HostRoute> hostRoute( const KernelRoutes* routes,
                                       const Vantu::IpGenAddr& address ) const;
   Speech speech( Wire* wire ) const;

   VrfConfig config_;
   std::map<Vantu::IntfId, std::string> devices_;  // the interfaces' names here
   VrfRouter router_;
};

}
