// Sources on this router's own links, as the forwarding process tells of their packets:
// (S,G) state at the first-hop router with its keepalive timer (RFC 7761, 4.2 and
// 4.11). Event-loop thread; what the engine is given outlives it.
#pragma once

#include <map>
#include <memory>

#include "engine/RouterCounters.h"
#include "engine/Routes.h"
#include "engine/Timer.h"

namespace Router {

class PIMSM_API SourceEngine {
 public:
   static constexpr double keepalivePeriod = 210.0;  // s

   SourceEngine( Routes& routes, Mox::Clock& clock, const Topology& topology,
                 RouterCounters& counters );

   // Takes up the sources that a reload left, for a keepalive period from now on.
   void adopt();

   // A packet of the route's source came in by the interface so many seconds ago: its
   // timer starts from there. Nothing happens unless the source is on a link there.
   void receiveData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                     double age );

   // The same of a packet that was forwarded, where it came in being known. Where the
   // timer does not run, that is so for a source on a link only; a route that is not
   // there is not made.
   void receiveMore( const Routing::Pim::RouteKey& key, double age );

   // The configuration or the routes have changed: what is no source of this router's
   // links any more ends.
   void updatePaths();

 private:
   using RouteKey = Routing::Pim::RouteKey;

   bool accept( const RouteKey& key );
   bool attached( const RouteKey& key ) const;
   void start( const RouteKey& key, double seconds );
   void end( const RouteKey& key );

   Routes& routes_;
   Mox::Clock& clock_;
   const Topology& topology_;
   RouterCounters& counters_;
   std::map<RouteKey, std::unique_ptr<Timer>> keepalive_;
};

}
