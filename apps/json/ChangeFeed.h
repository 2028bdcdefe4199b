// The changes in the tables of one VRF and family, as differences between records.
//
//   watches  tables route and routeIntf key by key; reads the model, which follows them,
//            for where the traffic comes in
//   ignores  values between two calls of take(): the last one counts; times, which are
//            no change of their own
//
// While the writer is gone, and for a second after it is back, changes wait: a
// restarting agent is told as gone and back, and then by what differs. Goes before the
// mirror. Event-loop thread only.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "apps/json/RouteMembers.h"
#include "apps/mirror/RouteFilter.h"

namespace Show {

struct Change {
   // "add", "update", "delete" of a route's or an interface's entry as `routes`
   // prints it; "sweep": values before it were skipped; "writer-gone",
   // "writer-back"; "vrf-new", "vrf-gone".
   const char* op;
   Routing::Pim::RouteKey key;
   Vantu::IntfId intfId;  // empty: the route itself
   bool rpt = false;      // the entry of an (S,G) route's (S,G,rpt) state
   // The entry's members that differ; null: missing before, or now.
   struct Field {
      std::string name;
      nlohmann::ordered_json before, after;
   };
   std::vector<Field> fields;
};

class ChangeFeed : public Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   static constexpr double restartPause = 1.0;  // s

   // `something` is called when take() may have changes. `isNew`: the VRF is new,
   // so all its records are reported. REQUIRES: a loaded mirror.
   ChangeFeed( const Mirror& mirror, bool isNew, std::function<void()> something );

   // The changes since the last call whose item matches the filter before or after
   // the change, in order of group, source, interface. The first call also reports
   // a writer that is already gone.
   std::vector<Change> take( const RouteFilter& filter, double now );
   // Will a later take() have changes?
   bool waiting() const {
      return !changed_.empty() || !routeLag_.settled() || !intfLag_.settled();
   }
   // Was "vrf-gone" reported? It is the last change.
   bool gone() const { return gone_; }

   const Mirror& mirror() const { return mirror_; }

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const Routing::Pim::RouteKey& key ) override;
   void onRoute() override { something_(); }
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override;

 private:
   using RouteKey = Routing::Pim::RouteKey;

   // A route without its interfaces; its record has no times here.
   struct RouteState {
      std::optional<RouteRecord> record;  // none: no such record
      Incoming incoming, rptIncoming;
      bool rpt = false;  // has it (S,G,rpt) state?
      bool operator==( const RouteState& ) const = default;
   };
   struct Known {
      RouteState route;
      std::map<Vantu::IntfId, IntfRecord> intfs;
   };

   void touch( const RouteKey& key ) { changed_[key]; }
   // Marks the group's (S,G) routes too, which may come in along the (*,G) route's
   // path.
   void touchSources( const RouteKey& wildcard );
   bool writerAlive() const;
   void takeWriter( std::vector<Change>& changes, double now );
   void takeSkipped( std::vector<Change>& changes, double now );
   struct IntfChange {
      Vantu::IntfId intfId;
      std::optional<IntfRecord> before, after;
   };
   std::vector<IntfChange> refreshIntfs( const RouteKey& key,
                                         const std::set<Vantu::IntfId>& intfs,
                                         Known& known ) const;
   void takeKey( const RouteKey& key, const std::set<Vantu::IntfId>& intfs,
                 const RouteFilter& filter, std::vector<Change>& changes );
   static void tellRoute( std::vector<Change>& changes, const RouteKey& key,
                          const RouteState& before, const RouteState& after );
   // Sets the values of a route that other records determine.
   void derive( const RouteKey& key, Known& known ) const;

   // How far the reports of a table are behind its journal.
   class Lag {
    public:
      explicit Lag( const MoxBrane::TableBase& table ) : table_( table ) {
         restart();
      }
      void restart();
      void notified() { ++notified_, settled_ = false; }
      bool settled() const { return settled_; }
      // Were changes skipped that the last call did not report? Counts only those
      // that are certain: an active writer is checked again.
      bool skipped( double now );

    private:
      const MoxBrane::TableBase& table_;
      uint64_t instance_ = 0;
      uint64_t notified_ = 0;
      uint64_t known_ =
         0;                // of the journal before `notified_`, reported or skipped
      uint64_t mark_ = 0;  // the journal's head at markTime_
      double markTime_ = 0.0;
      uint64_t markNotified_ = 0;
      bool settled_ = true;
   };

   const Mirror& mirror_;
   Mox::Ptr<const Routing::Pim::SparseMode::Brane::Status> tables_;
   std::function<void()> something_;
   std::map<RouteKey, Known, ByGroup> known_;
   // The keys to check: each with its route, and with the interfaces that changed.
   std::map<RouteKey, std::set<Vantu::IntfId>, ByGroup> changed_;
   bool new_, gone_ = false;
   bool alive_ = true;  // as reported
   double quietUntil_ = 0.0;
   Lag routeLag_, intfLag_;
};

}
