// The routes and interface records of one VRF and family, for the engines to put
// their states on.
//
// An engine asks for a record, which comes with its route and the route's path where
// they are missing, and says when it has changed a state there. A record goes with
// its last state, unless the (*,G) route's stands behind it (ForwardingEngine); a
// route goes with the last state on its records and its keepalive timer. An (S,G)
// route is on the source tree while some interface has joined or includes the
// source, or while a source on a link of this router sends; else, with (S,G,rpt)
// prunes or asserts alone, on the RP tree.
//
// Event-loop thread; the model, clock and topology outlive this.
#pragma once

#include <set>

#include "engine/GroupPolicy.h"
#include "engine/Topology.h"
#include "model/Status.h"
#include "platform/loop/Clock.h"

namespace Router {

// The source of a group's (*,G) route.
inline Vantu::IpGenAddr anySource( const Vantu::IpGenAddr& group ) {
   return Vantu::IpGenAddr::unspecified( group.family() );
}

class PIMSM_API Routes {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;
   using Route = Routing::Pim::SparseMode::Route;
   using RouteKey = Routing::Pim::RouteKey;

   // `policy` says which groups have fast reroute; null: none. It outlives this.
   Routes( Mox::Ptr<Routing::Pim::SparseMode::Status> model, Mox::Clock& clock,
           const Topology& topology, const GroupPolicy* policy );

   const Routing::Pim::SparseMode::Status& model() const { return *model_; }

   // What is there; null: nothing.
   Mox::Ptr<Route> find( const RouteKey& key ) { return model_->route( key ); }
   Mox::Ptr<Intf> find( const RouteKey& key, Vantu::IntfId intfId );

   // Is the route there, or may one more be? The model has a limit of routes.
   bool hasRoom( const RouteKey& key ) const {
      return model_->route().size() < model_->maxRoutes() ||
             std::as_const( *model_ ).route( key ) != nullptr;
   }

   // The interfaces with a record.
   std::set<Vantu::IntfId> intfs() const;

   // Made where missing. A (*,G) route without an RP takes the one that `rp` names:
   // its joins may know what the configuration does not.
   Mox::Ptr<Route> route( const RouteKey& key, const Vantu::IpGenAddr& rp = {} );
   Mox::Ptr<Intf> record( const RouteKey& key, Vantu::IntfId intfId,
                          const Vantu::IpGenAddr& rp = {} );

   // A state of the record, or the route's keepalive, has changed: the route's tree
   // follows; what holds no state any more goes.
   void update( const RouteKey& key, Vantu::IntfId intfId );
   void update( const RouteKey& key );

   // Takes up what the model holds after a reload: what holds no state goes, as a
   // process leaves it that died between two writes.
   void adopt();

   // Every route takes the path and the RP that the topology says now. A (*,G) route
   // whose RP is not configured keeps the one that its join named.
   void updatePaths();

 private:
   Mox::Ptr<Route> newRoute( const RouteKey& key, const Vantu::IpGenAddr& rp );
   void updatePath( Route& route, const Vantu::IpGenAddr& rp );
   void updateBackup( Route& route, const Topology::Path& path );
   void adoptRoute( const RouteKey& key );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Clock& clock_;
   const Topology& topology_;
   const GroupPolicy* policy_;
};

}
