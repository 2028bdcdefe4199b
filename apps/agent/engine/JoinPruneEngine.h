// Turns received join/prune messages into downstream state of one VRF and family:
// routes, interface records and their machines (RFC 7761, 4.5.1 to 4.5.3).
//
// Routes and records come with the first join or (S,G,rpt) prune that needs them
// and go with the last state on them; a record that the (*,G) route's interface stands
// behind stays for ForwardingEngine. An (S,G) route is on the source tree while
// some interface has joined it, on the RP tree while it only holds (S,G,rpt)
// prunes. Event-loop thread; the model, clock, routing and counters outlive the
// engine.
#pragma once

#include <map>
#include <set>

#include "apps/agent/engine/AgentCounters.h"
#include "apps/agent/engine/DownstreamJoin.h"
#include "apps/agent/engine/DownstreamRptPrune.h"
#include "apps/agent/engine/GroupPolicy.h"
#include "apps/agent/engine/Neighbors.h"
#include "apps/agent/engine/StaticRouting.h"
#include "model/Status.h"

namespace Agent {

class JoinPruneEngine {
 public:
   // How long a state lives that was reloaded after a restart (RFC 7761, 4.11).
   static constexpr double defaultHoldtime = 210.0;  // s

   JoinPruneEngine( Mox::Ptr<Routing::Pim::SparseMode::Status> model,
                    Mox::Clock& clock, const StaticRouting& routing,
                    AgentCounters& counters );

   // Which groups take no shared-tree state and which have fast reroute; null, as at
   // the start: none. It outlives the engine.
   void policyIs( const GroupPolicy* policy ) { policy_ = policy; }

   // Takes up what the model holds after a reload: each state lives for
   // defaultHoldtime unless refreshed; routes and records without one go.
   void adopt();

   // The configuration has changed: every route takes the path that it says now, and
   // shared-tree state of groups that are source-specific now ends. A
   // (*,G) route whose RP is not configured keeps the one that its join named.
   void updatePaths();

   // The interfaces on which there is state.
   std::set<Vantu::IntfId> recordedIntfs() const;

   // The interface has gone: all state on it ends.
   void handleIntfGone( Vantu::IntfId intfId );

   // A message addressed to this router, from a neighbour on the interface.
   void receive( Vantu::IntfId intfId, const Neighbors& neighbors,
                 const PimJoinPrune& message );

 private:
   using Intf = Routing::Pim::SparseMode::Intf;
   using Route = Routing::Pim::SparseMode::Route;
   using RouteKey = Routing::Pim::RouteKey;

   // By group and interface first: a (*,G) join touches all sources of both.
   struct Key {
      Vantu::IpGenAddr group;
      Vantu::IntfId intfId;
      Vantu::IpGenAddr source;
      auto operator<=>( const Key& ) const = default;
      RouteKey routeKey() const { return { source, group }; }
   };
   struct Downstream {
      std::unique_ptr<DownstreamJoin> join;
      std::unique_ptr<DownstreamRptPrune> rptPrune;
   };
   // What one message brings along to each of its entries.
   struct Message {
      Vantu::IntfId intfId;
      double holdtime;
      double pendingTime;
   };

   bool acceptGroup( const JoinPruneGroup& group );
   bool acceptSource( const EncodedSource& source, const Vantu::IpGenAddr& group );
   void receiveJoin( const Message& message, const Vantu::IpGenAddr& group,
                     const EncodedSource& source );
   void receivePrune( const Message& message, const Vantu::IpGenAddr& group,
                      const EncodedSource& source );
   void receiveWcJoin( const Message& message, const Vantu::IpGenAddr& group,
                       const Vantu::IpGenAddr& rp );
   template <class Call>
   void eachRptPrune( const Vantu::IpGenAddr& group, Vantu::IntfId intfId,
                      Call call );

   void endIf(
      const std::function<bool( const Key&, const Downstream& )>& condition );
   Downstream* find( const Key& key );
   DownstreamJoin& joinMachine( const Key& key, const Vantu::IpGenAddr& rp );
   DownstreamRptPrune& rptPruneMachine( const Key& key );
   Mox::Ptr<Intf> record( const Key& key, const Vantu::IpGenAddr& rp );
   Mox::Ptr<Route> newRoute( const RouteKey& key, const Vantu::IpGenAddr& rp );
   void endSourceSpecific();
   bool refuseSharedTree( const Vantu::IpGenAddr& group );
   void updateBackup( Route& route, const StaticRouting::Path& path );
   void updatePath( Route& route, const Vantu::IpGenAddr& rp );
   void adoptRoute( Route& route );
   void adoptIntf( const Key& key, const Intf& intf, const Vantu::IpGenAddr& rp );
   void handleEnded( const Key& key );
   void updateTree( Route& route );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Clock& clock_;
   const StaticRouting& routing_;
   AgentCounters& counters_;
   const GroupPolicy* policy_ = nullptr;
   std::map<Key, Downstream> downstream_;
};

}
