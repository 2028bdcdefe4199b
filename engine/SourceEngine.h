// Sources on this router's own links, known from packets that the forwarding
// process reports: (S,G) state at the first-hop router with its keepalive timer
// (RFC 7761, 4.2 and 4.11). Event-loop thread; the constructor's arguments outlive
// the engine.
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

   // Resumes the reloaded sources for a keepalive period from now on.
   void adopt();

   // A packet of the route's source came in by the interface `age` seconds ago: the
   // timer counts from there. Ignored unless the source is on a link there.
   void receiveData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                     double age );

   // As above for a forwarded packet, whose incoming interface is known. Restarts a
   // running timer; starts one only for a directly connected source. Makes no
   // route.
   void receiveMore( const Routing::Pim::RouteKey& key, double age );

   // The configuration or the routes have changed: ends the state of sources that
   // are no longer on this router's links.
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
