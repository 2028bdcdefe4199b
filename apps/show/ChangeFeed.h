// What changes in the tables of one VRF and family, as differences between records.
//
//   watches  tables route and routeIntf key by key
//   ignores  values between two calls of take(): the last one counts
//
// While the writer is gone, and for a second after it is back, changes wait: a
// restarting agent is told as gone and back, and then by what differs. Goes before the
// mirror. Event-loop thread only.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "apps/show/RouteFilter.h"

namespace Show {

struct Change {
   // "add", "update", "delete" of a route or interface; "sweep": values were skipped
   // before it; "writer-gone", "writer-back".
   const char* op;
   Routing::Pim::RouteKey key;
   Vantu::IntfId intfId;  // empty: the route itself
   // The members by which its JSON tells them; null: not there before, or now.
   struct Field {
      const char* name;
      nlohmann::ordered_json before, after;
   };
   std::vector<Field> fields;
};

class ChangeFeed : public Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   static constexpr double restartPause = 1.0;  // s

   // `something` is called when take() may have something to tell.
   ChangeFeed( const Mirror& mirror, std::function<void()> something );

   // Since the last call, routes first, what the filter takes.
   std::vector<Change> take( const RouteFilter& filter, double now );
   // Is something left for a later take()?
   bool waiting() const {
      return !routes_.empty() || !intfs_.empty() || !routeLag_.settled() ||
             !intfLag_.settled();
   }

   const Mirror& mirror() const { return mirror_; }

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const Routing::Pim::RouteKey& key ) override;
   void onRoute() override { something_(); }
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override;

 private:
   using RouteRecord = Routing::Pim::SparseMode::Brane::Route;
   using IntfRecord = Routing::Pim::SparseMode::Brane::Intf;

   void takeWriter( std::vector<Change>& changes, double now );
   void takeSkipped( std::vector<Change>& changes, double now );
   // Does the route's traffic come in where the filter says?
   bool comesIn( const Routing::Pim::RouteKey& key,
                 const RouteFilter& filter ) const;
   void takeRoute( const Routing::Pim::RouteKey& key, const RouteFilter& filter,
                   std::vector<Change>& changes );
   void takeIntf( const Routing::Pim::RouteIntfKey& key, const RouteFilter& filter,
                  std::vector<Change>& changes );
   // How far what is told of a table lies behind its journal.
   class Lag {
    public:
      explicit Lag( const MoxBrane::TableBase& table ) : table_( table ) {
         restart();
      }
      void restart();
      void notified() { ++notified_, settled_ = false; }
      bool settled() const { return settled_; }
      // Were changes skipped that the last call has not told? At least those that it
      // tells: who still writes is looked at again.
      bool skipped( double now );

    private:
      const MoxBrane::TableBase& table_;
      uint64_t instance_ = 0;
      uint64_t notified_ = 0;
      uint64_t known_ = 0;  // of the journal, told or skipped, before `notified_`
      uint64_t mark_ = 0;   // the journal's head at markTime_
      double markTime_ = 0.0;
      uint64_t markNotified_ = 0;
      bool settled_ = true;
   };

   const Mirror& mirror_;
   Mox::Ptr<const Routing::Pim::SparseMode::Brane::Status> tables_;
   std::function<void()> something_;
   std::unordered_map<Routing::Pim::RouteKey, RouteRecord> knownRoutes_;
   std::unordered_map<Routing::Pim::RouteIntfKey, IntfRecord> knownIntfs_;
   std::unordered_set<Routing::Pim::RouteKey> routes_;  // changed
   std::unordered_set<Routing::Pim::RouteIntfKey> intfs_;
   bool alive_;
   double quietUntil_ = 0.0;
   Lag routeLag_, intfLag_;
};

}
