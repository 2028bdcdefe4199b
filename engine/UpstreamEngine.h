// Sends joins and prunes towards sources and RPs (RFC 7761, 4.5.4 to 4.5.7).
//
// ForwardingEngine decides the upstream states by the macros; this times and sends what
// follows from them. Each route has a record here with the neighbour that it joins
// through (RPF'), the time of the next join (JT) and, for an (S,G) route, the override
// timer of its (S,G,rpt) state (OT). A joined (S,G) route with a fast-reroute path joins
// through that as well, by a second record. Entries wait in their neighbour's queue until
// flush(). Records of a neighbour whose joins are due within a second of each other go
// together.
//
// An (S,G,rpt) prune of another router is overridden also for sources without a route
// here, by a record that lasts until then. Event-loop thread; the constructor's
// arguments outlive the engine. Does nothing while the sender is silent.
#pragma once

#include <map>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "engine/Deadlines.h"
#include "engine/JoinPruneQueue.h"
#include "engine/Journal.h"
#include "engine/Links.h"
#include "engine/Routes.h"
#include "engine/Timer.h"

namespace Router {

class PIMSM_API UpstreamEngine {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   using Route = Routing::Pim::SparseMode::Route;

   // Joins that are due so soon go out with the others of their neighbour.
   static constexpr double together = 1.0;  // s

   UpstreamEngine( Routes& routes, Links& links, const VrfConfig& config,
                   const Sender& sender, Mox::Clock& clock, Journal& journal );
   ~UpstreamEngine();

   using LastJoins =
      std::function<double( Vantu::IntfId, const Vantu::IpGenAddr& )>;
   // Resumes the reloaded upstream states: each neighbour gets its joins a period after
   // the last ones, at once if that is over.
   void adopt( const LastJoins& lastJoins );
   // When the neighbour last got joins that were due; 0: never.
   double lastJoins( Vantu::IntfId intfId, const Vantu::IpGenAddr& neighbor ) const;

   // The neighbour towards which the route joins: the one of the path, or the winner of
   // an assert that this router lost on the path's interface. Notes in the route
   // whether there is one; without one the path stays. At the RP itself a shared tree
   // begins at the register interface.
   Routing::Pim::Rpf resolve( Route& route, const Topology::Path& path ) const;

   // Called before the route's states are decided: an assert may have changed its
   // neighbour.
   void prepare( const RouteKey& key );
   // The route's upstream states have been decided, or it has gone.
   void review( const RouteKey& key );

   void handleNeighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                        NeighborEvent event );
   // A message of another router on the link to another router.
   void receive( const Link& link, const PimJoinPrune& message );

   // A neighbour on the link pruned the route, and none of the others overrode it: tells
   // them so, in case an override was lost (PruneEcho of RFC 7761, 4.5.1 and 4.5.2).
   void echoPrune( Vantu::IntfId intfId, const RouteKey& key,
                   const Vantu::IpGenAddr& rp );

   // Sends all that waits.
   void flush();

   size_t size() const { return size_; }

 private:
   using Address = Vantu::IpGenAddr;
   struct Target;
   struct Record;
   struct Group;
   using Tree = JoinPruneQueue::Tree;

   Record* find( const RouteKey& key ) const;
   Record& make( const RouteKey& key );
   void erase( Record& record );
   Target* target( Vantu::IntfId intfId, const Address& neighbor );
   void moveTo( Record& record, Target* target );

   Target* targetOf( const Route& route );
   void pruneFormer( Record& record, const Target* now );
   void pruneAll( Record& record );
   Target* backupOf( const Route& route );
   void follow( Record& record, const Route& route );
   void followRpt( Record& record, const Route& route );
   void followBackup( Record& record, const Route& route );
   void makeBackup( Record& record, Target& target );
   void leave( Record& record );
   Target* targetOfRpt( const RouteKey& key ) const;

   void resume( Record& record, const LastJoins& lastJoins );
   void setJoinDue( Record& record, double time );
   void hasten( Record& record );
   void override( Record& record );
   double overrideTime( const Target& target ) const;
   void handleJoinsDue( Target& target );
   void handleOverrideDue( Record& record );

   void tell( Published::EventKind kind, const Record& record,
              const Target& to ) const;
   void sendJoin( Record& record, JoinEvent why );
   void sendPrune( Record& record, Target& to );
   void sendRpt( const Record& record, bool join );
   void add( Target& to, Tree tree, const Record& record, bool join );
   void takeAlong( Target& target );
   void pruneBeside( Target& target, const Address& group );
   void flush( Target& target );
   void sendAgain();

   // What another router's message gives to each of its entries.
   struct Seen {
      const Link& link;
      Target& target;
      double holdtime;
   };
   void receiveJoin( const Seen& seen, const Address& group,
                     const EncodedSource& source );
   void receivePrune( const Seen& seen, const Address& group,
                      const EncodedSource& source );
   Record* joinedBy( Record* record, const Target& target );
   void suppress( const Seen& seen, Record& record );
   void overrideRpt( const Seen& seen, const RouteKey& key );

   Routes& routes_;
   Links& links_;
   const VrfConfig& config_;
   const Sender& sender_;
   Mox::Clock& clock_;
   Journal& journal_;
   Deadlines joins_;      // of targets
   Deadlines overrides_;  // of records
   std::unordered_map<Address, Group> groups_;
   size_t size_ = 0;
   std::map<std::pair<Vantu::IntfId, Address>, std::unique_ptr<Target>> targets_;
   std::unordered_set<Target*> waiting_;  // with entries in their queue
   std::unordered_set<Target*> unsent_;   // the same, tried again by this timer
   Timer retry_;
};

}
