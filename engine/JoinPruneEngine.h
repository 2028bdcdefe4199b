// Turns received join/prune messages into downstream state of one VRF and family:
// routes, interface records and their machines (RFC 7761, 4.5.1 to 4.5.3).
//
// Each machine's state is in a record of Routes. Event-loop thread; the
// constructor's arguments outlive the engine.
#pragma once

#include <map>
#include <set>

#include "engine/DownstreamJoin.h"
#include "engine/DownstreamRptPrune.h"
#include "engine/Neighbors.h"
#include "engine/RouterCounters.h"
#include "engine/Routes.h"

namespace Router {

class PIMSM_API JoinPruneEngine {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   using RouteIntfKey = Routing::Pim::RouteIntfKey;

   // `policy` names the groups without shared-tree state; null: none. `timed` is
   // called when timers of a record may have changed, though nothing else has.
   JoinPruneEngine(
      Routes& routes, Mox::Clock& clock, const Topology& topology,
      const GroupPolicy* policy, RouterCounters& counters,
      std::function<void( const RouteKey&, Vantu::IntfId )> timed =
         []( const RouteKey&, Vantu::IntfId ) {} );

   // Resumes the reloaded states with their remaining times.
   void adopt( const KeptTimers& kept );
   // Writes the record's timers for the next process.
   void tell( Published::Downstream& record ) const;

   // The policy has changed: ends shared-tree state of groups that are now
   // source-specific.
   void endSourceSpecific();

   // The interface has gone: ends all state on it.
   void handleIntfGone( Vantu::IntfId intfId );

   // Handles a message to this router from a neighbour on the interface.
   void receive( Vantu::IntfId intfId, const Neighbors& neighbors,
                 const PimJoinPrune& message );

 private:
   using Intf = Routing::Pim::SparseMode::Intf;

   // By group and interface first: a (*,G) join concerns all sources of both.
   struct Key {
      Vantu::IpGenAddr group;
      Vantu::IntfId intfId;
      Vantu::IpGenAddr source;
      auto operator<=>( const Key& ) const = default;
      RouteKey routeKey() const { return { source, group }; }
      static Key of( const RouteIntfKey& key ) {
         return { key.routeKey.group, key.intfId, key.routeKey.source };
      }
   };
   struct Downstream {
      std::unique_ptr<DownstreamJoin> join;
      std::unique_ptr<DownstreamRptPrune> rptPrune;
   };
   // The properties that a message gives to each of its entries.
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
   DownstreamJoin& joinMachine( const Key& key, const Vantu::IpGenAddr& rp = {} );
   DownstreamRptPrune& rptPruneMachine( const Key& key );
   bool refuseSharedTree( const Vantu::IpGenAddr& group );
   void handleEnded( const Key& key );

   Routes& routes_;
   Mox::Clock& clock_;
   const Topology& topology_;
   const GroupPolicy* policy_;
   RouterCounters& counters_;
   std::function<void( const RouteKey&, Vantu::IntfId )> timed_;
   std::map<Key, Downstream> downstream_;
};

}
