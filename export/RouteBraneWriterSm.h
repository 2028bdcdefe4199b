// Keeps the exported tables in step with the model.
//
//   watches  the model Status, its Routes, their upstream records and Intfs
//   writes   the tables route and routeIntf, only inside a review
//   wakes    10 to 50 ms after a marked change, bursts limited by a credit bucket;
//            a slice of a review runs 10 ms, and one key of each table at least
//   ignores  deliberately, whatever marks nothing: times, prevRpf, join, prune and
//            assert state, receiver flags, switch state. They are sampled when
//            something else marks their record. A change of an interface alone
//            waits for the next review that something else brings about, unless the
//            owner calls doMaybeUpdateReviewTimer().
//
// Marks a route:     added or removed; routeFlags; another umh or umhFrr, or none;
//                    umh's rpf, rpfAttached, mbrIif, upRptState; umhFrr's rpf,
//                    rpfAttached.
// Marks an interface: added or removed, also with its route; forward.
//
// Until the model is initialized, marks only accumulate. What a table refuses is
// traced and counted, and the review goes on; a record refused for want of room is
// marked again when this writer next removes one of that table.
// Holds references to what it was given; goes before their owner. Event-loop thread
// only.
#pragma once

#include <memory>
#include <optional>
#include <unordered_set>

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

   // Marks everything the model holds and ends with handleInitialized().
   // REQUIRES: nothing null; the tables mounted as writer.
   RouteBraneWriterSm( ModelStatusPtr status, BraneStatusPtr braneStatus,
                       Mox::Clock* clock );

   // What came of this writer's writes to a table.
   struct Writes {
      uint64_t written = 0;
      uint64_t removed = 0;  // records that stood
      uint64_t refused = 0;  // of either kind; refused() is both tables'
   };
   const Writes& routeWrites() const { return routeWrites_; }
   const Writes& routeIntfWrites() const { return routeIntfWrites_; }

   // Keys marked since the last review began; keys of the review in progress.
   // Never null once constructed, and another after each begin of a review.
   RouteChangeSet* changeSet() { return changeSet_.get(); }
   const RouteChangeSet* changeSet() const { return changeSet_.get(); }
   const RouteChangeSet* reviewChangeSet() const { return reviewChangeSet_.get(); }
   const Mox::ReviewTimer* reviewTimer() const {
      return reviewTimer_ ? &*reviewTimer_ : nullptr;
   }

   // One for each of the model's routes; null where there is none. What they are stays
   // the writer's own.
   const RouteReactors& route() const { return route_; }
   const MoxRoute* route( const RouteKey& key ) const;

   void handleInitialized();
   // Begins a new, empty change set.
   void handleChangeSet();
   // One slice. The clock watcher calls it when its time comes.
   void doReview();
   // Schedules a review if something is marked, none is pending, and both this and
   // the model are initialized.
   void doMaybeUpdateReviewTimer();

 protected:
   ~RouteBraneWriterSm() override;

 private:
   class MoxStatus;
   class MoxClock;
   class MoxChangeSet;

   void handleRoute( const RouteKey& key );
   void doReviewRoutes();
   void doReviewRouteIntfs();
   void doReviewRoute( const RouteKey& key );
   void doReviewRouteIntf( const RouteIntfKey& key );
   bool sliceOver() const;
   template <class Key, class Operation>
   bool refusedFullTable( const char* where, const Key& key, Writes& writes,
                          Operation operation );
   void writeRoute( const SparseMode::Route& route );
   void writeRouteIntf( const RouteKey& key, const SparseMode::Intf& intf );
   void deleteRoute( const RouteKey& key );
   void deleteRouteIntf( const RouteIntfKey& key );

   std::unique_ptr<MoxStatus> moxStatus_;
   std::unique_ptr<MoxClock> moxClock_;
   std::unique_ptr<MoxChangeSet> moxChangeSet_;
   Mox::Ptr<RouteChangeSet> changeSet_;
   Mox::Ptr<RouteChangeSet> reviewChangeSet_;
   std::optional<Mox::ReviewTimer> reviewTimer_;
   RouteReactors route_;
   // Waiting for room in their table.
   std::unordered_set<RouteKey> refusedRoutes_;
   std::unordered_set<RouteIntfKey> refusedRouteIntfs_;
   Writes routeWrites_, routeIntfWrites_;
};

PIMSM_API Mox::Ptr<RouteBraneWriterSm> routeBraneWriterSmFactory(
   ModelStatusPtr status, BraneStatusPtr braneStatus, Mox::Clock* clock );
PIMSM_API Mox::Ptr<RouteBraneWriterSm> RouteBraneWriterSmIs(
   ModelStatusPtr status, BraneStatusPtr braneStatus, Mox::Clock* clock );

}
