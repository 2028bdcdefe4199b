// The routes and interface records of one VRF and family, on which the engines keep
// their states.
//
// An engine asks for a record, which is made with its route and the route's path
// where missing, and reports each change of a state there. A record goes with its
// last state, unless it stands for the (*,G) route's record (ForwardingEngine). A
// route goes with the last state on its records and its keepalive timer. Where this
// router only listens, an (S,G) route is on the source tree while some interface has
// joined or includes the source, or while a source on a link of this router sends.
// Otherwise, with (S,G,rpt) prunes or asserts alone, it is on the RP tree.
//
// Event-loop thread; the model, clock and topology outlive this.
#pragma once

#include <set>
#include <unordered_map>

#include "engine/GroupPolicy.h"
#include "engine/Journal.h"
#include "engine/Topology.h"
#include "model/Status.h"
#include "platform/loop/Clock.h"

namespace Router {

// The source of a group's (*,G) route.
inline Vantu::IpGenAddr anySource( const Vantu::IpGenAddr& group ) {
   return Vantu::IpGenAddr::unspecified( group.family() );
}

// The interface by which registers come in; the protocol macros know it.
inline const Vantu::IntfId& registerIntf() {
   static const Vantu::IntfId intfId( "Register0" );
   return intfId;
}

class PIMSM_API Routes {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;
   using Route = Routing::Pim::SparseMode::Route;
   using RouteKey = Routing::Pim::RouteKey;

   // What an engine has changed on a record: its join, prune, assert and member
   // states, or the timers for the next process. With neither, only values for people have
   // changed.
   struct Change {
      bool states = false;
      bool timers = false;
   };
   using Changed =
      std::function<void( const Routing::Pim::RouteIntfKey&, const Change& )>;

   struct Hooks {
      // Called for every change() of a record.
      Changed changed;
      // The route's RPF on a path, where the path's next hop is not its neighbour.
      std::function<Routing::Pim::Rpf( Route&, const Topology::Path& )> resolve;
      // Gives the route the path.
      std::function<void( Route&, const Routing::Pim::Rpf& )> changePath;
      // Outlives the routes.
      Journal& journal;
   };

   // `policy` names the groups with fast reroute; null: none. It outlives this.
   // `joins`: this router sends joins, and is on a source tree when they bring the data.
   Routes( Mox::Ptr<Routing::Pim::SparseMode::Status> model, Mox::Clock& clock,
           const Topology& topology, const GroupPolicy* policy, bool joins,
           Hooks hooks );

   // An engine reports each change of a record before it calls update().
   void changed( const Routing::Pim::RouteIntfKey& key, const Change& change ) {
      hooks_.changed( key, change );
   }

   const Routing::Pim::SparseMode::Status& model() const { return *model_; }

   // The existing route or record; null without one.
   Mox::Ptr<Route> find( const RouteKey& key ) { return model_->route( key ); }
   Mox::Ptr<Intf> find( const RouteKey& key, Vantu::IntfId intfId );

   // Does the route exist, or is there room for one more? The model limits routes.
   bool hasRoom( const RouteKey& key ) const {
      return model_->route().size() < model_->maxRoutes() ||
             std::as_const( *model_ ).route( key ) != nullptr;
   }

   // The interfaces with a record.
   std::set<Vantu::IntfId> intfs() const;

   // Makes a missing route. A (*,G) route without a configured RP takes `rp`, the
   // RP of its join.
   Mox::Ptr<Route> route( const RouteKey& key, const Vantu::IpGenAddr& rp = {} );
   Mox::Ptr<Intf> record( const RouteKey& key, Vantu::IntfId intfId,
                          const Vantu::IpGenAddr& rp = {} );

   // A state of the record, or the route's keepalive, has changed: updates the
   // route's tree and removes records and routes without a state.
   void update( const RouteKey& key, Vantu::IntfId intfId );
   void update( const RouteKey& key );

   // Resumes the reloaded model. Removes routes and records without a state: a
   // process that died between two writes leaves those.
   void adopt();

   // Gives every route the topology's present path and RP. A (*,G) route whose RP
   // is not configured keeps the one of its join.
   void updatePaths();
   // As above, for one route; nothing without it.
   void updatePath( const RouteKey& key );

   // Updates the route's tree after changes of the macros' inputs. A route that this
   // router joins is on the source tree while data can come in no other way, or since
   // they have come by it (RFC 7761, 4.2.2).
   void updateTree( const RouteKey& key );
   // Data of the route came in by the interface. Returns true if that moved it to the
   // source tree.
   bool handleData( const RouteKey& key, Vantu::IntfId intfId );
   // A packet was forwarded `age` seconds ago. Returns true if it is the first that is
   // known by the source tree.
   bool handleMore( const RouteKey& key, double age );
   // Is it on the source tree, by which no data have come yet?
   bool untried( const RouteKey& key ) const { return untried_.count( key ) != 0; }

 private:
   // A tree that was entered takes the data at the latest after this time.
   static constexpr double entering = 0.5;  // s

   void tell( Published::EventKind kind, const Route& route,
              const Routing::Pim::Rpf& former = {} ) const;
   Mox::Ptr<Route> newRoute( const RouteKey& key, const Vantu::IpGenAddr& rp );
   void updatePath( Route& route, const Vantu::IpGenAddr& rp );
   void updateTree( Route& route );
   void updateBackup( Route& route, const Topology::Path& path );
   void adoptRoute( const RouteKey& key );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Clock& clock_;
   const Topology& topology_;
   const GroupPolicy* policy_;
   const bool joins_;
   Hooks hooks_;
   // Those on a source tree that has brought no data, with the time when they entered it.
   // One that has the shared tree's neighbour brings what that tree did.
   std::unordered_map<RouteKey, double> untried_;
};

}
