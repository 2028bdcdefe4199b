// Changes of a route's path, made before they break: while data still comes by the
// former interface it is taken from there, until the new one brings some (the model's
// `iifSwitching`). The upstream machine joins the new neighbour at once, and prunes the
// former one when the switch has ended.
//
// It ends with the first packet by the new interface, after `longest` without one, or
// with the next change. Where the former interface is gone or silent, or the model's
// `disableMbb` is set, the path changes at once. Event-loop thread; the constructor's
// arguments outlive this.
#pragma once

#include <map>

#include "engine/Links.h"
#include "engine/Timer.h"
#include "model/Status.h"

namespace Router {

class PIMSM_API PathSwitch {
 public:
   using Route = Routing::Pim::SparseMode::Route;
   using RouteKey = Routing::Pim::RouteKey;

   // The kernel tells of packets by the wrong interface every 3 s at most.
   static constexpr double longest = 4.0;  // s
   // The counters are read each second.
   static constexpr double alive = 2.5;  // s, since the last packet

   // `age`: of the route's last packet in seconds, infinity if it is not known. Empty:
   // every path changes at once.
   using Age = std::function<double( const RouteKey& )>;
   // `ended`: a switch has ended, so that the former path can be the backup.
   using Ended = std::function<void( const RouteKey& )>;
   PathSwitch( Mox::Ptr<Routing::Pim::SparseMode::Status> model, const Links& links,
               Mox::Clock& clock, Age age, Ended ended );

   // Gives the route the path.
   void changePath( Route& route, const Routing::Pim::Rpf& next );
   // A packet of the source and group came in by the interface.
   void handleData( const RouteKey& key, Vantu::IntfId intfId );
   // The links have changed: nothing is waited for that came by one which is gone.
   void handleLinks();
   // Goes on with the switches of the reloaded model.
   void adopt();

 private:
   bool keepsFormer( const Route& route, const Routing::Pim::Rpf& next ) const;
   bool bringsData( Vantu::IntfId intfId ) const;
   void begin( Route& route );
   void end( Route& route );
   void endAt( const RouteKey& key, Vantu::IntfId intfId );
   void startTimer( const RouteKey& key );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   const Links& links_;
   Mox::Clock& clock_;
   Age age_;
   Ended ended_;
   std::map<RouteKey, Timer> switches_;
};

}
