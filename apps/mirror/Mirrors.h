// The route models of all VRFs and families found under a root, rebuilt from their
// tables.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assembly/VrfMirror.h"
#include "platform/loop/RealClock.h"
#include "published/MfibStatus.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"

namespace Show {

using Routing::Pim::Rpf;
using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

// "ipv4", "ipv6".
std::string familyName( Vantu::AddressFamily family );

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
   // Were the tables removed, as with their VRF, after they had been there?
   bool removed() const {
      return tables->route().control()->mountStatus() == MoxBrane::mountRemoved;
   }
   bool writerAlive() const { return tables->route().writerAlive(); }
   const char* writerText() const { return writerAlive() ? "running" : "gone"; }
   // Why the tables cannot be read. What was read but is no record is no problem of
   // this kind: see unreadable().
   struct Problem {
      enum Kind { none, missing, otherLayout, damaged, noFile };
      Kind kind = none;
      std::string text;
   };
   // Of the routes.
   Problem problem() const;
   // The same of an entity's tables, and of one.
   static Problem problem( const MoxBrane::MountedEntity& entity );
   static Problem problem( const MoxBrane::TableBase& table );
   // Have the tables been removed since they were found, as with their VRF?
   bool gone() const;
   // Seconds since the agent last rang after writing routes; nothing where the bells are
   // not to be seen.
   std::optional<double> sinceLastWrite() const;
   // Records of all tables that were left out as damaged or no value of their type.
   uint64_t unreadable() const;

   Vantu::AddressFamily family;
   Routing::Pim::SparseMode::VrfMirror routes;
   // Of `routes`, as are the agent's below.
   Mox::Ptr<Routing::Pim::SparseMode::Status> model;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables;
   // These tables need no loading.
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers;
   Mox::Ptr<Routing::Pim::SparseMode::AdvertisedSgStatus> advertised;
   // What the agent publishes of itself; its tables may be missing.
   Mox::Ptr<Published::FamilyStatus> agent;
   // What the forwarding process publishes; its tables may be missing.
   Mox::Ptr<Published::MfibStatus> mfib;
};

// Records of an entity's tables that were left out as damaged or no value of their type.
uint64_t unreadable( const MoxBrane::MountedEntity& entity );

class Mirrors {
 public:
   // s; how long load() waits for tables that are being made.
   static constexpr double patience = 1.0;

   // Mounts what the selection names and there is; load() fills the models. Throws
   // Published::UnreadableDirectoryError where the directory may not be read.
   explicit Mirrors( const Selection& selection );

   // What of a mirror is to be read.
   enum Part { routesPart, registersPart, advertisedPart };
   struct Unread {
      std::unique_ptr<Mirror> mirror;
      Mirror::Problem problem;
   };
   // Runs the loop until all() can be read; for the routes, until every model holds
   // what its tables held. Takes out of all() and returns what cannot be read; what was
   // removed meanwhile is taken out without a word.
   std::vector<Unread> load( Part part = routesPart );

   // Mounts what has come since and may be read; it loads as the loop runs.
   void rescan();
   // REQUIRES: one of all(), that nobody uses any more.
   void drop( const Mirror& mirror );

   // In order of VRF name, IPv4 first.
   const std::vector<std::unique_ptr<Mirror>>& all() const { return mirrors_; }
   double now() const { return clock_.now(); }
   Mox::Clock& clock() { return clock_; }
   Mox::Loop& loop() { return loop_; }
   // What the agent's process counts; its table may be missing.
   const Published::ProcessStatus& agentProcess() const { return *process_; }

 private:
   using Found = std::vector<std::pair<Vantu::AddressFamily, L3::VrfName>>;
   void mount( const Found& found );

   Selection selection_;
   Mox::Loop loop_;
   Mox::RealClock clock_;
   Corvex::EntityManager manager_;
   Mox::Ptr<Published::ProcessStatus> process_;
   std::vector<std::unique_ptr<Mirror>> mirrors_;
};

}
