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

// The VRFs and families that the user asks for.
struct Selection {
   std::string root = Corvex::EntityManager::defaultRoot;
   std::string vrf = "all";
   std::optional<Vantu::AddressFamily> family;
};

// One VRF and family: the tables and the model that mirrors them.
struct Mirror {
   // What is wanted of the routes: models that follow the tables; tables that tell of
   // changes; or tables to look at once.
   enum Depth { models, watchedTables, tablesOnly };

   Mirror( Corvex::EntityManager& manager, Mox::Clock& clock,
           Vantu::AddressFamily mirrorFamily, const L3::VrfName& vrfName,
           Depth depth = models );

   std::string vrf() const { return name.name(); }
   bool loaded() const { return model == nullptr || model->initialized(); }
   // Were the tables removed, as with their VRF, after they had existed?
   bool removed() const {
      return tables->route().control()->mountStatus() == MoxBrane::mountRemoved;
   }
   bool writerAlive() const { return tables->route().writerAlive(); }
   // "running" or "gone".
   const char* writerText() const;
   // The same for people: also that the tables are left over from before this host's boot.
   const char* writerStory() const;
   // The reason why the tables cannot be read. Records that were read but are
   // invalid are no such problem: see unreadable().
   struct Problem {
      enum Kind { none, missing, otherLayout, damaged, noFile };
      Kind kind = none;
      std::string text;
   };
   // The problem of the route tables.
   Problem problem() const;
   // The problem of an entity's tables, and of one table.
   static Problem problem( const MoxBrane::MountedEntity& entity );
   static Problem problem( const MoxBrane::TableBase& table );
   // Have the tables been removed since they were found, as with their VRF?
   bool gone() const;
   // Seconds since the agent last rang after writing tables of this VRF and family;
   // nothing if the bell cannot be seen.
   std::optional<double> sinceLastWrite() const;
   // A setting that the forwarding process publishes; nothing: it does not.
   std::optional<std::string> mfibSetting( const char* setting ) const;
   // The number of records in all tables that were skipped as damaged or
   // undecodable.
   uint64_t unreadable() const;

   Vantu::AddressFamily family;
   L3::VrfName name;
   std::optional<Routing::Pim::SparseMode::VrfMirror> routes;
   // The model of `routes`, null without; those below belong to the agent's
   // tables.
   Mox::Ptr<Routing::Pim::SparseMode::Status> model;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables;
   // These tables need no loading.
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers;
   Mox::Ptr<Routing::Pim::SparseMode::AdvertisedSgStatus> advertised;
   // The agent's tables about itself; they may be missing.
   Mox::Ptr<Published::FamilyStatus> agent;
   // The forwarding process's tables; they may be missing.
   Mox::Ptr<Published::MfibStatus> mfib;
};

// The number of records in an entity's tables that were skipped as damaged or
// undecodable.
uint64_t unreadable( const MoxBrane::MountedEntity& entity );

class Mirrors {
 public:
   // s; the time that load() waits for tables that are being made.
   static constexpr double patience = 1.0;

   // Mounts the selected tables that exist; load() fills the models. Throws
   // Published::UnreadableDirectoryError if the directory may not be read. With
   // tablesOnly no change is heard of afterwards, which spares the watches, and nothing
   // is mounted before next().
   explicit Mirrors( const Selection& selection,
                     Mirror::Depth depth = Mirror::models );

   // The part of a mirror to be read.
   enum Part { routesPart, registersPart, advertisedPart };
   struct Unread {
      std::unique_ptr<Mirror> mirror;
      Mirror::Problem problem;
   };
   // Runs the loop until all() can be read; for the routes, until every model holds
   // its tables' records. Removes unreadable mirrors from all() and returns them;
   // mirrors removed meanwhile are dropped silently.
   std::vector<Unread> load( Part part = routesPart );

   // Drops what all() has, and mounts the tables of the next VRF and family; false: there
   // is no other. Those of thousands of VRFs are more than a process may map at once.
   // REQUIRES: tablesOnly.
   bool next();

   // Mounts new tables that may be read; they load as the loop runs.
   void rescan();
   // Drops the mirrors of VRFs that have gone, and rescans. REQUIRES: no mirror of a VRF
   // that has gone is in use.
   void followVrfs();
   // REQUIRES: one of all(), no longer in use.
   void drop( const Mirror& mirror );

   // In order of VRF name, IPv4 first.
   const std::vector<std::unique_ptr<Mirror>>& all() const { return mirrors_; }
   double now() const { return clock_.now(); }
   Mox::Clock& clock() { return clock_; }
   Mox::Loop& loop() { return loop_; }
   // The counters of the agent's process, and of the forwarding one; their tables may be
   // missing.
   const Published::ProcessStatus& agentProcess() const { return *process_; }
   const Published::ProcessStatus& mfibProcess() const { return *mfib_; }

 private:
   using Found = std::vector<std::pair<L3::VrfName, Vantu::AddressFamily>>;
   static Found find( const Selection& selection );
   void mount( const Found& found );

   Selection selection_;
   Mirror::Depth depth_;
   Mox::Loop loop_;
   Mox::RealClock clock_;
   Corvex::EntityManager manager_;
   Mox::Ptr<Published::ProcessStatus> process_, mfib_;
   std::vector<std::unique_ptr<Mirror>> mirrors_;
   Found left_;               // for next(), the last one first
   double patientUntil_ = 0;  // s
};

}
