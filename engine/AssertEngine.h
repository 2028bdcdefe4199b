// The assert machines of one VRF and family (RFC 7761, 4.6): what they receive, and what
// they send. A machine exists while it has a state. Event-loop thread; the constructor's
// arguments outlive the engine.
#pragma once

#include <map>

#include "engine/AssertMachine.h"
#include "engine/HoldTimer.h"
#include "engine/Links.h"
#include "engine/RouterCounters.h"
#include "engine/Routes.h"

namespace Router {

class PIMSM_API AssertEngine {
 public:
   AssertEngine( Routes& routes, Links& links, const Sender& sender,
                 Mox::Clock& clock, RouterCounters& counters );

   // As JoinPruneEngine::adopt().
   void adopt( const KeptTimers& kept );
   void tell( Published::Downstream& record ) const;

   // An assert of another router on the interface.
   void receive( Vantu::IntfId intfId, const Vantu::IpGenAddr& sender,
                 const PimAssert& message );
   // Joins to this router end lost asserts.
   void receive( Vantu::IntfId intfId, const PimJoinPrune& message );
   // A packet came in by an interface that the route does not expect it on.
   void handleData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId );
   void handleNeighborLost( Vantu::IntfId intfId, const Vantu::IpGenAddr& address );
   void handleIntfGone( Vantu::IntfId intfId );
   // Inputs of the route's macros may have changed.
   void review( const Routing::Pim::RouteKey& key );

 private:
   using RouteKey = Routing::Pim::RouteKey;
   using AssertMetric = Routing::Pim::SparseMode::AssertMetric;

   struct Key {
      Vantu::IpGenAddr group;
      Vantu::IpGenAddr source;
      Vantu::IntfId intfId;
      auto operator<=>( const Key& ) const = default;
      RouteKey routeKey() const { return { source, group }; }
   };

   bool accept( const PimAssert& message );
   bool concerns( const RouteKey& key );
   bool receive( const Key& key, const AssertMetric& metric );
   void handleData( const Key& key );
   template <class Call>
   void each( const std::function<bool( const Key& )>& wanted, Call call );
   AssertMachine& machine( const Key& key );
   void settle( const Key& key );

   void send( const Key& key, const AssertMetric& metric );

   Routes& routes_;
   Links& links_;
   const Sender& sender_;
   Mox::Clock& clock_;
   RouterCounters& counters_;
   std::map<Key, std::unique_ptr<AssertMachine>> machines_;
};

}
