// One VRF and address family of a router, put together whole: model, tables, engines.
//
//    Router::VrfRouter vrf( manager, clock, Vantu::AddressFamily::ipv4, config, counters );
//    Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
//    while ( !vrf.ready() ) loop.dispatch();   // what a former process left
//    vrf.adopt();
//    vrf.receive( intfId, packet, message )
//
// Opens nothing: who has it hands it the messages of `packet/`, and sends what he sends
// himself. It publishes the routes, and beside them interfaces, neighbours, RPs, access lists,
// settings and timers, so that readers see what it saw and the next process goes on from there.
// It follows the forwarding process of the VRF where one runs. Event-loop thread; what it is
// given by reference outlives it.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <unordered_set>
#include <vector>

#include "assembly/VrfWriter.h"
#include "engine/Protocol.h"
#include "published/Counting.h"
#include "router/FamilyCounters.h"
#include "router/GatedClock.h"
#include "router/MfibWatch.h"
#include "router/RouteTally.h"

namespace Router {

struct VrfRouterOptions {
   // The host's unicast routes; empty: there are none but those of the configuration.
   HostRoutes hostRoutes = {};
   // What the tables have room for.
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // The time of the engines, where it is another than that of the tables; null: it is the
   // same. Outlives the router.
   Mox::Clock* engineClock = nullptr;
};

class PIMSM_API VrfRouter {
 public:
   static constexpr size_t maxWaiting = 10000;  // messages, before adopt()
   static constexpr double maxBehind = 1.0;     // s

   // Copies the configuration. Throws what mounting throws (Brane::SecondWriterError,
   // Brane::CreateError).
   VrfRouter( Corvex::EntityManager& manager, Mox::Clock& clock,
              Vantu::AddressFamily family, const VrfConfig& config,
              RouterCounters& counters, const VrfRouterOptions& options = {} );
   ~VrfRouter();
   VrfRouter( const VrfRouter& ) = delete;
   VrfRouter& operator=( const VrfRouter& ) = delete;

   Vantu::AddressFamily family() const { return family_; }
   const Routing::Pim::SparseMode::Status& model() const { return *vrf_.model(); }
   // What is published; the engines write it.
   const Routing::Pim::SparseMode::VrfWriter& writer() const { return vrf_; }
   // How many groups a source has and sources a group.
   const Published::Counting& counting() const { return counting_; }

   // Has the reload ended?
   bool ready() const { return vrf_.ready(); }
   bool adopted() const { return adopted_; }
   // Once, when ready: the engines take up what was reloaded, then what has waited.
   void adopt();

   // Another configuration of the same VRF.
   void configIs( const VrfConfig& config );
   // The VRF goes: readers see its tables go. The router is to go next.
   void retire() { vrf_.retire(); }

   // A decoded message that arrived on the interface; one that comes before adopt() waits,
   // and is counted as refused where too many do. The packet's payload is not looked at.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const Message& message );

   // The host's routes have changed.
   void pathsChanged() { protocol_.pathsChanged(); }

   // At the end of each turn of the loop: forwarding follows the turn's changes, and what
   // changed is published. No route is published between a change and the forwarding that
   // follows from it, unless it takes longer than maxBehind.
   void handleTurnEnd();
   // Is everything that is marked in the tables?
   bool published() const;

 private:
   class Resume : public Mox::Clock::Notifiee {
    public:
      using Notifiee::Notifiee;
      void onTime() override {}
   };

   bool review();
   bool mayWrite();
   void markExport( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId );
   void publishTimers();
   void markAllTimers();

   Vantu::AddressFamily family_;
   VrfConfig config_;
   RouterCounters& counters_;
   Mox::Clock& clock_;
   GatedClock writerClock_;
   Routing::Pim::SparseMode::VrfWriter vrf_;
   Published::Counting counting_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Protocol protocol_;
   MfibWatch mfib_;
   RouteTally tally_;
   // Asks for another turn when a review has used up its time.
   Resume resume_;
   FamilyCounters familyCounters_;
   bool publishDue_ = true;  // interfaces or configuration have changed
   std::unordered_set<Routing::Pim::RouteIntfKey> timersDue_;  // may run otherwise
   bool adopted_ = false;
   std::optional<double> behindSince_;  // forwarding, behind the changes
   std::deque<std::function<void()>> waiting_;
};

}
