// The route models of all VRFs and families found under a root, rebuilt from their
// tables.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/published/MfibStatus.h"
#include "apps/published/PimMirror.h"
#include "export/RouteBraneRestartSm.h"
#include "platform/loop/RealClock.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"

namespace Show {

// What of the tables is asked for.
struct Selection {
   std::string root = Corvex::EntityManager::defaultRoot;
   std::string vrf = "all";
   std::optional<Vantu::AddressFamily> family;
};

// One VRF and family: the tables and the model that mirrors them.
struct Mirror {
   Mirror( Corvex::EntityManager& manager, Mox::Clock& clock,
           Vantu::AddressFamily mirrorFamily, const L3::VrfName& name );

   std::string vrf() const { return model->vrfName().name(); }
   bool loaded() const { return model->initialized(); }
   bool writerAlive() const { return tables->route().writerAlive(); }
   // Why the tables cannot be read. What was read but is no record is no problem of
   // this kind: see unreadable().
   struct Problem {
      enum Kind { none, missing, otherLayout, damaged };
      Kind kind = none;
      std::string text;
   };
   Problem problem() const;
   // The same of an entity's tables.
   static Problem problem( const MoxBrane::MountedEntity& entity );
   // Seconds since the agent last rang after writing routes; nothing where the bells are
   // not to be seen.
   std::optional<double> sinceLastWrite() const;
   // Records left out because they were busy, damaged or no value of their type.
   uint64_t unreadable() const;

   Vantu::AddressFamily family;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::RouteBraneReaderSm> reader;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::RouteBraneRestartSm> restart;
   // These tables need no loading.
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers;
   Mox::Ptr<Routing::Pim::SparseMode::AdvertisedSgStatus> advertised;
   // What the agent publishes of itself; its tables may be missing.
   Mox::Ptr<Published::FamilyStatus> agent;
   std::unique_ptr<Published::PimMirror> pim;
   // What the forwarding process publishes; its tables may be missing.
   Mox::Ptr<Published::MfibStatus> mfib;
};

class Mirrors {
 public:
   // Mounts what the selection names and there is; load() fills the models.
   explicit Mirrors( const Selection& selection );

   // Runs the loop until every model holds what its tables held.
   void load();

   // In order of VRF name, IPv4 first.
   const std::vector<std::unique_ptr<Mirror>>& all() const { return mirrors_; }
   double now() const { return clock_.now(); }
   Mox::Clock& clock() { return clock_; }
   Mox::Loop& loop() { return loop_; }
   // What the agent's process counts; its table may be missing.
   const Published::ProcessStatus& agentProcess() const { return *process_; }

 private:
   void mountFamily( const Selection& selection, Vantu::AddressFamily family );

   Mox::Loop loop_;
   Mox::RealClock clock_;
   Corvex::EntityManager manager_;
   Mox::Ptr<Published::ProcessStatus> process_;
   std::vector<std::unique_ptr<Mirror>> mirrors_;
};

}
