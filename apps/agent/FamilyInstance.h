// One VRF and address family of the agent: model, tables, engines.
//
// Start-up: the tables are mounted, the reconciler reloads what they hold, then
// ready() turns true, the engines take the reloaded states up and may write, and
// the writer's reviews run. Messages that come earlier wait. Event-loop thread.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <unordered_set>

#include "apps/agent/AgentClock.h"
#include "apps/agent/FamilyCounters.h"
#include "apps/agent/GatedClock.h"
#include "apps/agent/KernelRoutes.h"
#include "apps/agent/MfibWatch.h"
#include "apps/agent/RouteTally.h"
#include "apps/config/AgentConfig.h"
#include "assembly/VrfWriter.h"
#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "published/Counting.h"
#include "published/Publisher.h"
#include "register/AdvertisedSgStatus.h"

namespace Agent {

class FamilyInstance {
 public:
   static constexpr size_t maxWaiting = 10000;  // messages, during the reload
   static constexpr double maxBehind = 1.0;     // s

   // The manager, clocks, counters and kernel routes (null: none) outlive the instance. Throws what mounting throws
   // (Brane::SecondWriterError, Brane::CreateError).
   FamilyInstance( Vantu::AddressFamily family, const VrfConfig& config,
                   Corvex::EntityManager& manager, Mox::Clock& real,
                   AgentClock& clock, RouterCounters& counters,
                   const KernelRoutes* kernelRoutes = nullptr );
   ~FamilyInstance();

   Vantu::AddressFamily family() const { return family_; }
   const VrfConfig& config() const { return config_; }
   const Routing::Pim::SparseMode::Status& model() const { return *vrf_.model(); }
   const Routing::Pim::SparseMode::Brane::Status& tables() const {
      return *vrf_.tables();
   }
   const Routing::Pim::SparseMode::RegisterStatus& registers() const {
      return *vrf_.registers();
   }
   const Routing::Pim::SparseMode::AdvertisedSgStatus& advertised() const {
      return *vrf_.advertised();
   }
   // How many groups a source has and sources a group.
   const Published::Counting& counting() const { return counting_; }

   // What could not be taken up of the tables as it stood, a line each: of another
   // layout or boot, damaged.
   std::vector<std::string> mountNotes() const;

   // Has the reload ended?
   bool ready() const { return vrf_.ready(); }
   bool adopted() const { return adopted_; }
   // Once, when ready: the engines take up what was reloaded, then what has waited.
   void adopt();

   // Another configuration of the same VRF. Its limits count at the next mount only.
   void configIs( const VrfConfig& config );
   // The VRF goes: its tables are removed, so that readers hear of it. The instance
   // is to go next.
   void retire();

   // The same of a VRF without an instance: as a former agent left it, or a constructor
   // that threw. What has a writer stays.
   static void removeTables( const std::string& root, Vantu::AddressFamily family,
                             const L3::VrfName& vrf );

   // A decoded message that arrived on the interface.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const Message& message );

   // The host's routes have changed.
   void pathsChanged() { protocol_.pathsChanged(); }

   // At the end of a turn: forwarding follows the turn's changes, and what changed is
   // published, an interface alone, too. No route is published between a change and
   // the forwarding that follows from it, unless it takes longer than maxBehind.
   void handleTurnEnd();
   // Is everything that is marked in the tables?
   bool published() const;

 private:
   class Resume : public Mox::Clock::Notifiee {
    public:
      using Notifiee::Notifiee;
      void onTime() override {}
   };

   std::optional<HostRoute> hostRoute( const KernelRoutes* routes,
                                       const Vantu::IpGenAddr& address ) const;
   bool review();
   bool mayWrite();
   void markExport( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId );
   void publish();
   void publishNeighbors();
   void publishTimers();
   void markAllTimers();
   void adoptNeighbors();

   Vantu::AddressFamily family_;
   VrfConfig config_;
   AgentClock& clock_;
   RouterCounters& counters_;
   GatedClock writerClock_;
   Routing::Pim::SparseMode::VrfWriter vrf_;
   Published::Counting counting_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Protocol protocol_;
   MfibWatch mfib_;
   RouteTally tally_;
   // Asks for another turn when a review has used up its time.
   Mox::Clock& real_;
   Resume resume_;
   FamilyCounters familyCounters_;
   bool publishDue_ = true;  // interfaces or configuration have changed
   std::unordered_set<Routing::Pim::RouteIntfKey> timersDue_;  // may run otherwise
   bool adopted_ = false;
   std::optional<double> behindSince_;  // forwarding, behind the changes
   std::deque<std::function<void()>> waiting_;
};

}
