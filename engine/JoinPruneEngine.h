// Turns received join/prune messages into downstream state of one VRF and family:
// routes, interface records and their machines (RFC 7761, 4.5.1 to 4.5.3).
//
// Each machine's state is in a record of Routes, which is told of every change. Event-loop
// thread; the constructor's arguments outlive the engine.
#pragma once

#include <set>
#include <unordered_map>

#include "engine/Deadlines.h"
#include "engine/DownstreamJoin.h"
#include "engine/DownstreamRptPrune.h"
#include "engine/Journal.h"
#include "engine/Neighbors.h"
#include "engine/Routes.h"

namespace Router {

class PIMSM_API JoinPruneEngine {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   using RouteIntfKey = Routing::Pim::RouteIntfKey;

   // Called when a prune of the route, with its RP, has waited in vain for an override.
   using Echo = std::function<void( Vantu::IntfId, const RouteKey&,
                                    const Vantu::IpGenAddr& rp )>;

   // `policy` names the groups without shared-tree state; null: none.
   JoinPruneEngine( Routes& routes, Mox::Clock& clock, const Topology& topology,
                    const GroupPolicy* policy, Journal& journal, Echo echo );
   ~JoinPruneEngine();

   // Resumes the reloaded states with their remaining times.
   void adopt( const KeptTimers& kept );
   // Writes the record's timers for the next process.
   void tell( Published::Downstream& record ) const;

   // The policy has changed: ends shared-tree state of groups that have none
   // any more.
   void endUnshared();

   // The interface has gone: ends all state on it.
   void handleIntfGone( Vantu::IntfId intfId );

   // Another router asserts for the route. Who joined by this one follows the winner,
   // so a join that the lost assert does not bar by itself ends.
   void handleAssert( const RouteIntfKey& key );

   // Handles a message to this router from a neighbour on the interface.
   void receive( Vantu::IntfId intfId, const Neighbors& neighbors,
                 const PimJoinPrune& message );

 private:
   using Intf = Routing::Pim::SparseMode::Intf;

   // Exists while one of its machines has a state.
   struct Record : Deadline {
      Record( const RouteKey& of, Mox::Ptr<Intf> on )
         : route( &of ), intf( std::move( on ) ) {}
      RouteIntfKey key() const { return { *route, intf->intfId() }; }

      const RouteKey* route;
      Mox::Ptr<Intf> intf;
      DownstreamJoin join;
      DownstreamRptPrune rptPrune;
      bool indexed = false;  // in rptPruned_
      uint32_t from = 0;     // whose join the last one was; in senders_
   };
   struct State;
   // A route's records, in order of their interfaces' hashes: they are few, and a
   // search reads no record. One table of all records would stop the engine each
   // time it grows.
   using OfRoute = std::vector<std::pair<Vantu::IntfId, std::unique_ptr<Record>>>;
   // The properties that a message gives to each of its entries.
   struct Message {
      Vantu::IntfId intfId;
      double holdtime;
      double pendingTime;
      uint32_t from;
   };

   bool acceptGroup( const JoinPruneGroup& group );
   bool acceptSource( const EncodedSource& source, const Vantu::IpGenAddr& group );
   void receiveJoin( const Message& message, const Vantu::IpGenAddr& group,
                     const EncodedSource& source );
   void receivePrune( const Message& message, const Vantu::IpGenAddr& group,
                      const EncodedSource& source );
   void receiveWcJoin( const Message& message, const Vantu::IpGenAddr& group,
                       const Vantu::IpGenAddr& rp );

   static OfRoute::const_iterator placeOf( const OfRoute& records,
                                           Vantu::IntfId intfId );
   Record* find( const RouteIntfKey& key ) const;
   void erase( const RouteIntfKey& key );
   Record* make( const RouteIntfKey& key, const Vantu::IpGenAddr& rp = {} );
   // Calls `change( record, now )`, which may end the record.
   template <class Act>
   void act( Record& record, Act change );
   void handleDue( Record& record );
   void indexRptPrune( Record& record, bool pruned );
   template <class Act>
   void eachRptPrune( const Vantu::IpGenAddr& group, Vantu::IntfId intfId,
                      Act change );
   template <class Condition, class Act>
   void eachOf( Condition condition, Act change );
   bool refuseSharedTree( const Vantu::IpGenAddr& group );
   uint32_t senderNumber();
   void tell( const RouteIntfKey& key, const Record& record, const State& before,
              const State& after );

   Routes& routes_;
   const Topology& topology_;
   const GroupPolicy* policy_;
   Journal& journal_;
   Echo echo_;
   Deadlines deadlines_;
   // The neighbours that joins came from, by their numbers; 0: not known.
   static constexpr size_t maxSenders = 65536;
   std::vector<Vantu::IpGenAddr> senders_ = { {} };
   std::unordered_map<Vantu::IpGenAddr, uint32_t> numbers_;
   std::unordered_map<RouteKey, OfRoute> records_;
   // The sources pruned from a group's shared tree, by the (*,G) and the interface:
   // a (*,G) join and the end of a message concern all of them.
   std::unordered_map<RouteIntfKey, std::set<Vantu::IpGenAddr>> rptPruned_;
};

}
