// The agent's counters of one VRF and family, beside its tables' own counters,
// under the path of its route tables. "reviews" counts finished reviews.
// "routeWritten", "routeRemoved" and "routeRefused" count the route table's writes,
// and the same for routeIntf. "reloadRoutes" and "reloadMicroseconds" describe the
// reload at the start.
#pragma once

#include "export/RouteBraneWriterSm.h"
#include "platform/entity/EventCounter.h"

namespace Router {

class FamilyCounters {
 public:
   using Writer = Routing::Pim::SparseMode::Brane::RouteBraneWriterSm;

   FamilyCounters( Mox::StringView path, double now )
      : reviews_( path, "reviews" ),
        route_( path, "route" ),
        routeIntf_( path, "routeIntf" ),
        reloadRoutes_( path, "reloadRoutes" ),
        reloadMicroseconds_( path, "reloadMicroseconds" ),
        start_( now ) {}

   // Called once, when the tables have been reloaded.
   void reloaded( size_t routes, double now ) {
      reloadRoutes_.inc( routes );
      reloadMicroseconds_.inc( static_cast<uint64_t>( ( now - start_ ) * 1e6 ) );
   }
   void follow( const Writer& writer ) {
      catchUp( reviews_, writer.reviews() );
      route_.follow( writer.routeWrites() );
      routeIntf_.follow( writer.routeIntfWrites() );
   }

 private:
   static void catchUp( Mox::EventCounter& counter, uint64_t count ) {
      if ( count != counter.value() ) counter.inc( count - counter.value() );
   }
   struct TableWrites {
      TableWrites( Mox::StringView path, const Mox::String& table )
         : written( path, table + "Written" ),
           removed( path, table + "Removed" ),
           refused( path, table + "Refused" ) {}
      void follow( const Writer::Writes& writes ) {
         catchUp( written, writes.written );
         catchUp( removed, writes.removed );
         catchUp( refused, writes.refused );
      }
      Mox::EventCounter written, removed, refused;
   };

   Mox::EventCounter reviews_;
   TableWrites route_, routeIntf_;
   Mox::EventCounter reloadRoutes_, reloadMicroseconds_;
   double start_;
};

}
