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
#include <unordered_map>

#include "apps/mirror/Mirrors.h"
#include "apps/record/OneRoute.h"
#include "apps/record/Samples.h"
#include "apps/store/Key.h"

namespace Fleet {

class Watched : private Routing::Pim::SparseMode::Brane::Status::NotifieeConst {
 public:
   // Of the key that may have changed.
   using Touch = std::function<void( const Key& )>;

   // REQUIRES: a mirror without a model, whose tables are ready.
   Watched( Show::Mirror& mirror, double sample, size_t top, Touch touch );

   const Show::Mirror& mirror() const { return mirror_; }
   const Scope& scope() const { return scope_; }
   Samples& samples() { return samples_; }
   OneRoute& oneRoute() { return oneRoute_; }

   // The routes in the tables, by kind.
   struct Counts {
      size_t wildcards = 0, sources = 0;
   };
   Counts counts() const;

   // Names every key that the tables have now.
   void touchAll();
   // Names every route: what they follow from has changed.
   void touchRoutes();
   // Names the key of the agent if it came or went since the last call.
   void lookAtWriter( double now );
   // Since when the agent is away, s; nothing while it runs.
   std::optional<double> goneSince() const { return goneSince_; }
   // Must the tables rest? While the agent is away or has just come back they are as they
   // were, or about to be.
   bool rests( double now ) const;

 private:
   static constexpr double restartPause = 1.0;  // s

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override;
   void onRoute() override;
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override;
   void onRouteIntf() override { onRoute(); }
   void touch( Key::Kind kind, const RouteKey& stream = {} ) const {
      touch_( { kind, scope_, stream } );
   }
   using Intfs = std::vector<Vantu::IntfId>;
   // Takes up whether the tables have the route, or its interface.
   void note( const RouteKey& key );
   void note( const Routing::Pim::RouteIntfKey& key );
   void noteAll();
   void touchRoute( const RouteKey& key );
   void touchRegisters();

   Show::Mirror& mirror_;
   Scope scope_;
   Samples samples_;
   Touch touch_;
   std::optional<double> goneSince_;
   double restsUntil_ = 0.0;
   // Which routes a group has, and which interfaces a route: the tables find records by
   // their keys alone.
   std::map<Vantu::IpGenAddr, std::set<RouteKey>> routes_;
   std::unordered_map<RouteKey, Intfs> intfs_;
   OneRoute oneRoute_;
   std::vector<std::shared_ptr<void>> observers_;
};

}
