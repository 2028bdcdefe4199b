// The sources that send, each with the keepalive timer of its route (RFC 7761, 4.2 and
// 4.11): those on this router's own links, known from packets that the forwarding process
// reports; where this router joins, also those whose data it forwards, and those that are
// registered with it. Event-loop thread; the constructor's arguments outlive
// the engine.
#pragma once

#include <map>
#include <memory>

#include "engine/Journal.h"
#include "engine/Routes.h"
#include "engine/Timer.h"

namespace Router {

class PIMSM_API SourceEngine {
 public:
   // `joins`: this router sends joins.
   SourceEngine( Routes& routes, Mox::Clock& clock, const Topology& topology,
                 const VrfConfig& config, bool joins, Journal& journal );

   // Resumes the reloaded sources for a keepalive period from now on.
   void adopt();

   // A packet of the route's source came in by the interface `age` seconds ago: the
   // timer counts from there. Ignored unless the source is on a link there.
   void receiveData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                     double age );

   // As above for a forwarded packet, whose incoming interface is known. Restarts a
   // running timer; starts one only for a directly connected source, or for one that
   // is joined. Makes no route.
   void receiveMore( const Routing::Pim::RouteKey& key, double age );

   // The source sends by other evidence: its route, made where missing, lives for that
   // time. Returns false, and counts it, where it cannot be.
   bool keepAlive( const Routing::Pim::RouteKey& key, double seconds );

   // The configuration or the routes have changed: ends the state of sources that
   // are no longer on this router's links.
   void updatePaths();

 private:
   using RouteKey = Routing::Pim::RouteKey;

   void wake( const RouteKey& key );
   bool accept( const RouteKey& key );
   bool attached( const RouteKey& key ) const;
   struct Source {
      Source( Mox::Clock& clock, std::function<void()> over, bool on )
         : keepalive( clock, std::move( over ) ), onLink( on ) {}
      Timer keepalive;
      bool onLink;  // known from this router's link
   };
   void start( const RouteKey& key, double seconds, bool onLink );
   void end( const RouteKey& key );

   Routes& routes_;
   Mox::Clock& clock_;
   const Topology& topology_;
   const VrfConfig& config_;
   const bool joins_;
   Journal& journal_;
   std::map<RouteKey, Source> sources_;
};

}
