// One VRF and address family of the agent: model, tables, engines.
//
// Start-up: the tables are mounted, the reconciler reloads what they hold, then
// ready() turns true, the engines take the reloaded states up and may write, and
// the writer's reviews run. Event-loop thread.
#pragma once

#include <map>
#include <memory>

#include "apps/agent/AgentClock.h"
#include "apps/agent/engine/ForwardingEngine.h"
#include "apps/agent/engine/JoinPruneEngine.h"
#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"

namespace Agent {

class FamilyInstance {
 public:
   // Everything given outlives the instance. Throws what mounting throws
   // (Brane::SecondWriterError, Brane::CreateError).
   FamilyInstance( Vantu::AddressFamily family, const VrfConfig& config,
                   Corvex::EntityManager& manager, Mox::Clock& real,
                   AgentClock& clock, AgentCounters& counters );
   ~FamilyInstance();

   Vantu::AddressFamily family() const { return family_; }
   const VrfConfig& config() const { return config_; }
   const Routing::Pim::SparseMode::Status& model() const { return *model_; }
   const Routing::Pim::SparseMode::Brane::Status& tables() const {
      return *tables_;
   }

   // Has the reload ended? REQUIRES for receive(): yes.
   bool ready() const { return model_->initialized(); }
   // Once, when ready: the engines take up what was reloaded.
   void adopt() { engine_.adopt(); }

   // A decoded message that arrived on the interface.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const PimMessage& message );

   // At the end of a turn: forwarding follows the turn's changes, and what changed is
   // published, an interface alone, too.
   void handleTurnEnd();
   // Is everything that is marked in the tables?
   bool published() const;

 private:
   // One interface's part in this family.
   struct Link {
      std::vector<Vantu::IpGenAddr> own;
      std::unique_ptr<Neighbors> neighbors;
   };

   class Resume : public Mox::Clock::Notifiee {
    public:
      using Notifiee::Notifiee;
      void onTime() override {}
   };

   void addLink( const InterfaceConfig& interface, AgentClock& clock );
   void updateDr( Vantu::IntfId intfId );
   void receiveJoinPrune( Vantu::IntfId intfId, const Link& link,
                          const IpPacket& packet, const PimJoinPrune& message );

   Vantu::AddressFamily family_;
   const VrfConfig& config_;
   AgentCounters& counters_;
   StaticRouting routing_;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables_;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::RouteBraneRestartSm> restart_;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::RouteBraneWriterSm> writer_;
   JoinPruneEngine engine_;
   ForwardingEngine forwarding_;
   // Asks for another turn when a review has used up its time.
   Mox::Clock& real_;
   Resume resume_;
   std::map<Vantu::IntfId, Link> links_;
};

}
