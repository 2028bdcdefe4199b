// Keeps a model as a mirror of the exported tables, in a reading process.
//
//   watches  tables route and routeIntf key by key; the model's routes
//   writes   the model: routes, interfaces, sources, sgRoutes and wcRoutes
//   wakes    with each notification, at once; it has no timer
//   ignores  what the tables hold when it is created: RouteBraneRestartSm loads
//            that. Create this one first, on an empty model; only so are all routes
//            counted. A reader that replaces another continues its counts.
//
// An interface record without a route is noted, and taken up when its route
// appears: no order is promised between the tables. A record that cannot be read
// whole changes nothing: it is either being rewritten, and will be notified again,
// or damaged. The model's observers run inside its handlers. Holds references to
// its arguments; goes before their owner. Event-loop thread only.
#pragma once

#include <memory>
#include <unordered_set>

#include "export/Status.h"

namespace Routing::Pim::SparseMode::Brane {

class StrayIntfs;

using ModelStatusMutablePtr = Mox::Ptr<SparseMode::Status>;
using BraneStatusConstPtr = Mox::Ptr<const Brane::Status>;

// clang-format off
#define PIMSM_ROUTE_READER_ATTRIBUTES( A ) \
   A( Fixed, status,      Status,      ModelStatusMutablePtr, ,      "the mirror" ) \
   A( Fixed, braneStatus, BraneStatus, BraneStatusConstPtr,   ,      "the tables" ) \
   A( Value, initialized, Initialized, bool,                  false, "handleInitialized has run" )
// clang-format on

class PIMSM_API RouteBraneReaderSm : public Mox::Entity {
 public:
   MOX_ENTITY( RouteBraneReaderSm, PIMSM_ROUTE_READER_ATTRIBUTES )

   // REQUIRES: nothing null.
   RouteBraneReaderSm( ModelStatusMutablePtr status,
                       BraneStatusConstPtr braneStatus );

   void handleInitialized();
   // A route record was written or removed.
   void handleBraneRoute( const RouteKey& key );
   // An interface record was written or removed. If its route's record was not
   // handled yet, the route is read from the table first.
   void handleBraneRouteIntf( const RouteIntfKey& key );
   // A route was added to the model or removed from it: counts, and keeps sources.
   void handleRoute( const RouteKey& key );

 protected:
   ~RouteBraneReaderSm() override;

 private:
   class MoxStatus;
   class MoxBraneStatus;

   void deleteRoute( const RouteKey& key );

   std::unique_ptr<MoxStatus> moxStatus_;
   std::unique_ptr<MoxBraneStatus> moxBraneStatus_;
   std::unique_ptr<StrayIntfs> strays_;
   std::unordered_set<RouteKey> counted_;  // in wcRoutes or sgRoutes, by anyone
};

PIMSM_API Mox::Ptr<RouteBraneReaderSm> routeBraneReaderSmFactory(
   ModelStatusMutablePtr status, BraneStatusConstPtr braneStatus );
PIMSM_API Mox::Ptr<RouteBraneReaderSm> RouteBraneReaderSmIs(
   ModelStatusMutablePtr status, BraneStatusConstPtr braneStatus );

}
