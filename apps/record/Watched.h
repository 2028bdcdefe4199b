// One VRF and family that is recorded: which of its keys may have changed.
//
//   watches  the tables of routes, registers, interfaces, neighbours, RPs and settings;
//            the agent's bell, for whether it lives
//   ignores  nothing: a key may be named without a change, never the reverse
//
// Goes before the mirror. Event-loop thread only.
#pragma once

#include <functional>
#include <map>
#include <set>

#include "apps/mirror/Mirrors.h"
#include "apps/record/Samples.h"
#include "apps/store/Key.h"

namespace Fleet {

class Watched : private Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   // Of the key that may have changed.
   using Touch = std::function<void( const Key& )>;

   // REQUIRES: a loaded mirror.
   Watched( const Show::Mirror& mirror, double sample, size_t top, Touch touch );

   const Show::Mirror& mirror() const { return mirror_; }
   const Scope& scope() const { return scope_; }
   Samples& samples() { return samples_; }

   // Names every key that the tables have now.
   void touchAll();
   // Names every route: what they follow from has changed.
   void touchRoutes();
   // Names the key of the agent if it came or went since the last call.
   void lookAtWriter( double now );
   // Must the tables rest? While the agent is away or has just come back they are as they
   // were, or about to be.
   bool rests( double now ) const;

 private:
   static constexpr double restartPause = 1.0;  // s

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override;
   void onRoute() override { touchAll(); }
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override {
      onRoute( key.routeKey );
   }
   void touch( Key::Kind kind, const RouteKey& stream = {} ) const {
      touch_( { kind, scope_, stream } );
   }
   // Keeps the sources of each group, whose entries follow the (*,G) route's.
   void note( const RouteKey& key );

   const Show::Mirror& mirror_;
   Scope scope_;
   Samples samples_;
   Touch touch_;
   bool alive_ = true;
   double restsUntil_ = 0.0;
   std::map<Vantu::IpGenAddr, std::set<RouteKey>> sources_;
   std::vector<std::shared_ptr<void>> observers_;
};

}
