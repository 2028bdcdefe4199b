// Keeps the exported tables in step with the model.
//
//   watches  the model Status, its Routes, their upstream records and Intfs
//   writes   the tables route and routeIntf, only inside a review
//   wakes    10 to 50 ms after a marked change, bursts limited by a credit bucket;
//            a slice of a review runs 10 ms, and one key of each table at least
//   ignores  deliberately, times, prevRpf, join, prune and assert state, receiver
//            flags and switch state. They are sampled when another change marks
//            their record. A change of an interface alone waits for the next review
//            that another change causes, unless the owner calls
//            doMaybeUpdateReviewTimer().
//
// Marks a route:     added or removed; routeFlags; another umh or umhFrr, or none;
//                    umh's rpf, rpfAttached, mbrIif, upRptState; umhFrr's rpf,
//                    rpfAttached.
// Marks an interface: added or removed, also with its route; forward.
//
// Until the model is initialized, marks only accumulate. A refused write is traced
// and counted, and the review goes on. A record refused for want of room is marked
// again when this writer next removes a record of that table, and each second while
// the table could grow if the system had the space. Holds references to
// its arguments; goes before their owner. Event-loop thread only.
#pragma once

#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "export/RouteChangeSet.h"
#include "export/Status.h"
#include "platform/loop/ReviewTimer.h"

namespace Routing::Pim::SparseMode::Brane {

using ModelStatusPtr = Mox::Ptr<const SparseMode::Status>;
using BraneStatusPtr = Mox::Ptr<Brane::Status>;
using ClockPointer = Mox::Clock*;

// clang-format off
#define PIMSM_ROUTE_WRITER_ATTRIBUTES( A ) \
   A( Fixed, status,         Status,         ModelStatusPtr, ,     "the model" ) \
   A( Fixed, braneStatus,    BraneStatus,    BraneStatusPtr, ,     "the tables, mounted as writer" ) \
   A( Fixed, clock,          Clock,          ClockPointer,   ,     "outlives the writer" ) \
   A( Value, minDelay,       MinDelay,       double,         0.01, "s; taken up at initialisation" ) \
   A( Value, maxDelay,       MaxDelay,       double,         0.05, "s; taken up at initialisation" ) \
   A( Value, reviewQuantum,  ReviewQuantum,  double,         0.01, "s; longest time of one slice" ) \
   A( Value, reviewStopTime, ReviewStopTime, double,         0.0,  "s; when the present slice ends" ) \
   A( Value, initialized,    Initialized,    bool,           false, "handleInitialized has run" ) \
   A( Counter, refused,      Refused,        uint64_t,       0,    "writes that a table refused" ) \
   A( Counter, slices,       Slices,         uint64_t,       0,    "slices run" ) \
   A( Counter, reviews,      Reviews,        uint64_t,       0,    "reviews finished" )
// clang-format on

class PIMSM_API RouteBraneWriterSm : public Mox::Entity {
 public:
   class MoxRoute;
   // The reactors on the model's routes, by key.
   using RouteReactors = std::unordered_map<RouteKey, std::unique_ptr<MoxRoute>>;

   MOX_ENTITY( RouteBraneWriterSm, PIMSM_ROUTE_WRITER_ATTRIBUTES )

   static constexpr double noSpaceRetry = 1.0;  // s

   // Marks everything that the model holds, then calls handleInitialized().
   // REQUIRES: nothing null; the tables mounted as writer.
   RouteBraneWriterSm( ModelStatusPtr status, BraneStatusPtr braneStatus,
                       Mox::Clock* clock );

   // The results of this writer's writes to a table.
   struct Writes {
      uint64_t written = 0;
      uint64_t removed = 0;  // records that stood
      uint64_t refused = 0;  // writes and removals; refused() counts both tables
   };
   const Writes& routeWrites() const { return routeWrites_; }
   const Writes& routeIntfWrites() const { return routeIntfWrites_; }

   // The keys marked since the last review began, and the keys of the review in
   // progress. Never null once constructed; a new object after each start of a
   // review.
   RouteChangeSet* changeSet() { return changeSet_.get(); }
   const RouteChangeSet* changeSet() const { return changeSet_.get(); }
   const RouteChangeSet* reviewChangeSet() const { return reviewChangeSet_.get(); }
   const Mox::ReviewTimer* reviewTimer() const { return &*reviewTimer_; }

   // A reactor for each of the model's routes; null without one. Its type is
   // private to the writer.
   const RouteReactors& route() const { return route_; }
   const MoxRoute* route( const RouteKey& key ) const;

   void handleInitialized();
   // Starts a new, empty change set.
   void handleChangeSet();
   // Runs one slice. The clock watcher calls it when its time comes.
   void doReview();
   // Schedules a review if something is marked, none is pending, and both this
   // writer and the model are initialized.
   void doMaybeUpdateReviewTimer();

 protected:
   ~RouteBraneWriterSm() override;

 private:
   class MoxStatus;
   class MoxClock;
   class Retry;
   class MoxChangeSet;

   void handleRoute( const RouteKey& key );
   // Records to be written together.
   using Routes = std::vector<RouteTable::Item>;
   using RouteIntfs = std::vector<RouteIntfTable::Item>;

   void doReviewRoutes();
   void doReviewRouteIntfs();
   void doReviewRoute( const RouteKey& key, Routes& batch );
   void doReviewRouteIntf( const RouteIntfKey& key, RouteIntfs& batch );
   bool sliceOver() const;
   template <class Key, class Operation>
   bool refusedFullTable( const char* where, const Key& key, Writes& writes,
                          Operation operation );
   void writeRoutes( Routes& batch );
   void writeRouteIntfs( RouteIntfs& batch );
   void writeRoute( const Brane::Route& record );
   void writeRouteIntf( const Brane::Intf& record );
   void deleteRoute( const RouteKey& key );
   void markRefusedRoutes();
   void markRefusedRouteIntfs();
   void deleteRouteIntf( const RouteIntfKey& key );

   std::unique_ptr<MoxStatus> moxStatus_;
   std::unique_ptr<MoxClock> moxClock_;
   std::unique_ptr<MoxChangeSet> moxChangeSet_;
   std::unique_ptr<Retry> retry_;
   Mox::Ptr<RouteChangeSet> changeSet_;
   Mox::Ptr<RouteChangeSet> reviewChangeSet_;
   std::optional<Mox::ReviewTimer> reviewTimer_;
   RouteReactors route_;
   // Records waiting for room in their table.
   std::unordered_set<RouteKey> refusedRoutes_;
   std::unordered_set<RouteIntfKey> refusedRouteIntfs_;
   Writes routeWrites_, routeIntfWrites_;
};

PIMSM_API Mox::Ptr<RouteBraneWriterSm> routeBraneWriterSmFactory(
   ModelStatusPtr status, BraneStatusPtr braneStatus, Mox::Clock* clock );
PIMSM_API Mox::Ptr<RouteBraneWriterSm> RouteBraneWriterSmIs(
   ModelStatusPtr status, BraneStatusPtr braneStatus, Mox::Clock* clock );

}
