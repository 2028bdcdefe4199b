// The assert machines of one VRF and family (RFC 7761, 4.6): what they receive, and what
// they send. A machine exists while it has a state. Event-loop thread; the constructor's
// arguments outlive the engine.
#pragma once

#include <map>

#include "engine/AssertMachine.h"
#include "engine/HoldTimer.h"
#include "engine/Journal.h"
#include "engine/Links.h"
#include "engine/Routes.h"

namespace Router {

class PIMSM_API AssertEngine {
 public:
   AssertEngine( Routes& routes, Links& links, const VrfConfig& config,
                 const Sender& sender, Mox::Clock& clock, Journal& journal );

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
   // The source's tree has brought its first data, or its states have been decided: the
   // route may win asserts.
   void handleSourceTree( const Routing::Pim::RouteKey& key );
   void handleNeighborLost( Vantu::IntfId intfId, const Vantu::IpGenAddr& address );
   void handleIntfGone( Vantu::IntfId intfId );
   // Inputs of the route's macros may have changed.
   void review( const Routing::Pim::RouteKey& key );

 private:
   using RouteKey = Routing::Pim::RouteKey;
   // Data on a wrong interface go on for this time, at least.
   static constexpr double wrongDataTime = 3.0;  // s
   static constexpr size_t maxEarly = 10000;

   using AssertMetric = Routing::Pim::SparseMode::AssertMetric;

   struct Key {
      Vantu::IpGenAddr group;
      Vantu::IpGenAddr source;
      Vantu::IntfId intfId;
      auto operator<=>( const Key& ) const = default;
      RouteKey routeKey() const { return { source, group }; }
   };

   // Has the source's own tree been joined, and brought data?
   bool mayWin( const RouteKey& key );
   bool accept( const PimAssert& message );
   void tell( const Key& key, const Routing::Pim::SparseMode::AssertInfo& before,
              const Routing::Pim::SparseMode::AssertInfo& after );
   bool concerns( const RouteKey& key );
   bool receive( const Key& key, const AssertMetric& metric );
   void handleData( const Key& key );
   template <class Call>
   void each( const std::function<bool( const Key& )>& wanted, Call call );
   AssertMachine& machine( const Key& key );
   void count( const Key& key );
   void settle( const Key& key );

   void send( const Key& key, const AssertMetric& metric );

   Routes& routes_;
   Links& links_;
   const VrfConfig& config_;
   const Sender& sender_;
   Mox::Clock& clock_;
   Journal& journal_;
   std::map<Key, std::unique_ptr<AssertMachine>> machines_;
   // Data that came by a wrong interface before any by the source's tree: the last time.
   std::map<Key, double> early_;
};

}
