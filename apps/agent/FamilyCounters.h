// What the agent counts of one VRF and family beside its tables' own counters, under
// the path of its route tables: "reviews" finished, "refusedWrites" of both route
// tables, and of the reload at the start "reloadRoutes" and "reloadMicroseconds".
#pragma once

#include "export/RouteBraneWriterSm.h"
#include "platform/entity/EventCounter.h"

namespace Agent {

class FamilyCounters {
 public:
   FamilyCounters( Mox::StringView path, double now )
      : reviews_( path, "reviews" ),
        refused_( path, "refusedWrites" ),
        reloadRoutes_( path, "reloadRoutes" ),
        reloadMicroseconds_( path, "reloadMicroseconds" ),
        start_( now ) {}

   // Once: all is taken up that the tables held.
   void reloaded( size_t routes, double now ) {
      reloadRoutes_.inc( routes );
      reloadMicroseconds_.inc( static_cast<uint64_t>( ( now - start_ ) * 1e6 ) );
   }
   void follow(
      const Routing::Pim::SparseMode::Brane::RouteBraneWriterSm& writer ) {
      reviews_.inc( writer.reviews() - reviews_.value() );
      refused_.inc( writer.refused() - refused_.value() );
   }

 private:
   Mox::EventCounter reviews_, refused_, reloadRoutes_, reloadMicroseconds_;
   double start_;
};

}
