// Keeps forwarding and upstream states of one VRF and family equal to the protocol
// macros' answers.
//
//   watches  routes, their upstream records, their sets of interface records, and the
//            PIM interfaces; engines report the states that they set on interface
//            records. Any change of the macros' inputs marks the route, on a (*,G)
//            route all of the group
//   writes   forward and fastForward of each record, upJoinState and the upstream
//            (S,G,rpt) state (RFC 7761, 4.5.4 to 4.5.7); on the
//            (S,G) routes of a group a record for each interface of its (*,G) route,
//            so that a route's outgoing list is its records with `forward`
//   wakes    when review() is called, at the end of a turn of the loop
//
// An interface never forwards what comes in by it. Event-loop thread; the model
// outlives the engine.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_set>
#include <vector>

#include "model/Status.h"

namespace Router {

class PIMSM_API ForwardingEngine {
 public:
   struct Hooks {
      // Called for each route whose macros' answers may have changed, before its
      // review. May change states, and end the route.
      std::function<void( const Routing::Pim::RouteKey& )> reviewed =
         []( const Routing::Pim::RouteKey& ) {};
      // Called when a value of the route, or of its record of the interface, has
      // changed. An empty interface means the route itself. Must not change the
      // model.
      std::function<void( const Routing::Pim::RouteKey&, Vantu::IntfId )> changed =
         []( const Routing::Pim::RouteKey&, Vantu::IntfId ) {};
      // Called when the route's upstream states have been decided, or when the route
      // has gone. Must not change the model.
      std::function<void( const Routing::Pim::RouteKey& )> decided =
         []( const Routing::Pim::RouteKey& ) {};
      // Called when an interface begins or ends to forward. Must not change the model.
      std::function<void( const Routing::Pim::RouteKey&, Vantu::IntfId, bool )>
         forwards = []( const Routing::Pim::RouteKey&, Vantu::IntfId, bool ) {};
   };
   ForwardingEngine( Mox::Ptr<Routing::Pim::SparseMode::Status> model,
                     Hooks hooks );
   explicit ForwardingEngine( Mox::Ptr<Routing::Pim::SparseMode::Status> model )
      : ForwardingEngine( std::move( model ), Hooks() ) {}
   ~ForwardingEngine();
   ForwardingEngine( const ForwardingEngine& ) = delete;
   ForwardingEngine& operator=( const ForwardingEngine& ) = delete;

   // Call it when a state on an interface record has changed.
   void handleRecord( const Routing::Pim::RouteKey& key );

   // Reviews marked routes, at least one, until `over` returns true. Returns
   // whether all are done. Routes marked meanwhile wait until all others have been
   // reviewed.
   bool review( const std::function<bool()>& over );

   // Is any route marked?
   bool pending() const { return !marked_.empty() || !round_.empty(); }

 private:
   using Route = Routing::Pim::SparseMode::Route;
   using RouteKey = Routing::Pim::RouteKey;
   using Group = Vantu::IpGenAddr;
   class MoxStatus;
   class MoxPimIntf;
   class MoxRoute;

   void mark( const RouteKey& key );
   void markGroup( const Group& group );
   void markAll();
   std::optional<RouteKey> next();
   void handleRoute( const Routing::Pim::RouteKey& key );
   void handlePimIntf( const Vantu::IntfId& intfId );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Hooks hooks_;
   std::unordered_set<RouteKey> marked_;
   // The routes being reviewed, the next one last. A (*,G) route comes before its
   // group's (S,G) routes.
   std::vector<RouteKey> round_;
   // By group, its (*,G) route before the (S,G) routes.
   struct ByGroup {
      using is_transparent = void;
      template <class A, class B>
      bool operator()( const A& a, const B& b ) const;
   };
   std::set<std::unique_ptr<MoxRoute>, ByGroup> routes_;
   std::map<Vantu::IntfId, std::unique_ptr<MoxPimIntf>> pimIntfs_;
   std::unique_ptr<MoxStatus> moxStatus_;
};

}
