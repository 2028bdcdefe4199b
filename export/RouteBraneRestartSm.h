// Loads the exported tables into a fresh model: in the agent after a restart, in a
// reader at its start.
//
//   watches  the clock; as reader the model's routes, for interfaces that came
//            before their route
//   writes   the model; as writer also removes interface records without a route
//   wakes    on each pass of the loop until done; a slice runs 0.1 s and one entry
//   then     sets the model's `initialized`, which lets the route writer review
//
// Phases: routes, interfaces, then each route's `initialized`. A slice that runs
// out of time leaves the key of the next entry as bookmark. Removes no routes: the
// writer's reviews do, as the model changes. Holds references to its arguments;
// goes before their owner. Event-loop thread only.
#pragma once

#include <memory>
#include <optional>

#include "export/RouteBraneReaderSm.h"

namespace Routing::Pim::SparseMode::Brane {

using BraneStatusMutablePtr = Mox::Ptr<Brane::Status>;
using RestartClock = Mox::Clock*;

// clang-format off
#define PIMSM_ROUTE_RESTART_ATTRIBUTES( A ) \
   A( Fixed, status,             Status,             ModelStatusMutablePtr, , "the model" ) \
   A( Fixed, braneStatus,        BraneStatus,        BraneStatusMutablePtr, , "the tables" ) \
   A( Fixed, role,               Role,               ::Brane::TableRole, ,    "only a writer removes stale records" ) \
   A( Fixed, clock,              Clock,              RestartClock, ,          "outlives the reconciler" ) \
   A( Value, reviewedRoutes,     ReviewedRoutes,     bool,         false,     "route phase done" ) \
   A( Value, reviewedRouteIntfs, ReviewedRouteIntfs, bool,         false,     "interface phase done" ) \
   A( Value, initializedRoutes,  InitializedRoutes,  bool,         false,     "initialisation phase done" ) \
   A( Value, reviewBookmark,     ReviewBookmark,     RouteIntfKey, {},        "where the phase resumes; default: its start" ) \
   A( Value, reviewQuantum,      ReviewQuantum,      double,       0.1,       "s; longest time of one slice" ) \
   A( Value, reviewStopTime,     ReviewStopTime,     double,       0.0,       "s; when the present slice ends" ) \
   A( Value, initialized,        Initialized,        bool,         false,     "handleInitialized has run" )
// clang-format on

class PIMSM_API RouteBraneRestartSm : public Mox::Entity {
 public:
   MOX_ENTITY( RouteBraneRestartSm, PIMSM_ROUTE_RESTART_ATTRIBUTES )

   // REQUIRES: nothing null; the tables mounted for the role.
   RouteBraneRestartSm( ModelStatusMutablePtr status,
                        BraneStatusMutablePtr braneStatus, ::Brane::TableRole role,
                        Mox::Clock* clock );

   void handleInitialized();
   // Runs one slice. The clock watcher calls it when its time comes.
   void doReview();

 protected:
   ~RouteBraneRestartSm() override;

 private:
   class MoxClock;
   class MoxStatus;

   void doReviewRoutes();
   void doReviewRouteIntfs();
   void doInitializeRoutes();
   template <class Table>
   bool walk( const Table& table, const typename Table::Key& from,
              std::optional<typename Table::Walk>& at,
              const std::function<void( const typename Table::Value& )>& handle,
              const typename Table::Ahead& ahead = {} );
   bool walkRoutes( const std::function<void( const Brane::Route& )>& handle );
   void doReviewRouteIntf( const Brane::Intf& record );
   void deleteStale( const RouteIntfKey& key );

   std::unique_ptr<MoxClock> moxClock_;
   std::unique_ptr<MoxStatus> moxStatus_;  // null as writer
   RouteIntfKey left_;  // the bookmark, as the last slice left it
   // Within a phase.
   std::optional<RouteTable::Walk> routes_;
   std::optional<RouteIntfTable::Walk> routeIntfs_;
};

PIMSM_API Mox::Ptr<RouteBraneRestartSm> routeBraneRestartSmFactory(
   ModelStatusMutablePtr status, BraneStatusMutablePtr braneStatus,
   ::Brane::TableRole role, Mox::Clock* clock );
PIMSM_API Mox::Ptr<RouteBraneRestartSm> RouteBraneRestartSmIs(
   ModelStatusMutablePtr status, BraneStatusMutablePtr braneStatus,
   ::Brane::TableRole role, Mox::Clock* clock );

}
