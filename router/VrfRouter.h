// A complete router for one VRF and address family: model, tables, engines.
//
//    Router::VrfRouter vrf( manager, clock, Vantu::AddressFamily::ipv4, config, counters );
//    Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
//    while ( !vrf.ready() ) loop.dispatch();   // what a former process left
//    vrf.adopt();
//    vrf.receive( intfId, packet, message )
//
// Opens no socket: the caller passes in the messages of `packet/`, and sends those
// that VrfRouterOptions::speech gets; without it the router only listens. It
// publishes the routes, and beside them interfaces, neighbours, RPs, access lists,
// settings and timers, so that readers know its inputs and the next process
// continues from there. It follows the VRF's forwarding process where one runs.
// Event-loop thread; arguments by reference outlive it.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "assembly/VrfWriter.h"
#include "engine/Protocol.h"
#include "router/FamilyCounters.h"
#include "router/GatedClock.h"
#include "router/MfibWatch.h"
#include "router/RouteTally.h"

namespace Router {

struct VrfRouterOptions {
   // The host's unicast routes; empty: only the configuration's routes are used.
   HostRoutes hostRoutes = {};
   // The capacity of the tables.
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // The engines' clock where it differs from the tables' clock; null: the same.
   // Outlives the router.
   Mox::Clock* engineClock = nullptr;
   // The way out for what the router sends; empty: it listens only.
   Speech speech = {};
   // Gets the events for people, with VRF and family; empty: nobody listens. Must not
   // call the router.
   Journal::Sink events = {};
};

class PIMSM_API VrfRouter {
 public:
   static constexpr size_t maxWaiting = 10000;  // messages, before adopt()
   static constexpr double maxBehind = 1.0;     // s

   // Copies the configuration. Throws the exceptions of mounting
   // (Brane::SecondWriterError, Brane::CreateError).
   VrfRouter( Corvex::EntityManager& manager, Mox::Clock& clock,
              Vantu::AddressFamily family, const VrfConfig& config,
              RouterCounters& counters, const VrfRouterOptions& options = {} );
   ~VrfRouter();
   VrfRouter( const VrfRouter& ) = delete;
   VrfRouter& operator=( const VrfRouter& ) = delete;

   Vantu::AddressFamily family() const { return family_; }
   const Routing::Pim::SparseMode::Status& model() const { return *vrf_.model(); }
   // The published state; the engines write it.
   const Routing::Pim::SparseMode::VrfWriter& writer() const { return vrf_; }

   // Has the reload ended?
   bool ready() const { return vrf_.ready(); }
   bool adopted() const { return adopted_; }
   // Call it once, when ready: the engines resume the reloaded states, then handle
   // the waiting messages.
   void adopt();

   // Replaces the configuration of the same VRF.
   void configIs( const VrfConfig& config );
   // Removes the VRF: readers see its tables go. Destroy the router next.
   void retire() { vrf_.retire(); }

   // Handles a decoded message that arrived on the interface. Before adopt() it
   // waits, and is counted as refused when too many wait. The packet's payload is
   // not read.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const Message& message );

   // This router leaves its links by intent: neighbours forget it at once.
   void sayGoodbye() { protocol_.sayGoodbye(); }

   // The host's routes have changed.
   void pathsChanged() { protocol_.pathsChanged(); }

   // Call it at the end of each turn of the loop: updates forwarding after the
   // turn's changes and publishes them. No route is published between a change and
   // the forwarding that follows from it, unless that takes longer than maxBehind.
   void handleTurnEnd();
   // Are all marked changes in the tables?
   bool published() const;

 private:
   class Resume : public Mox::Clock::Notifiee {
    public:
      using Notifiee::Notifiee;
      void onTime() override {}
   };

   class Retry;

   void tell( Published::EventKind kind, uint32_t value = 0 );
   bool review();
   bool mayWrite();
   void markExport( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                    bool timers );
   void publishTimers();
   bool publishTimersOf( const Routing::Pim::RouteIntfKey& key );
   bool publishRegisteringOf( const Routing::Pim::RouteKey& key );
   void retryRefused();
   bool refused() const;
   void reviewFormerTimers();

   Vantu::AddressFamily family_;
   VrfConfig config_;
   RouterCounters& counters_;
   Journal::Sink events_;
   Mox::Clock& clock_;
   GatedClock writerClock_;
   Routing::Pim::SparseMode::VrfWriter vrf_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Protocol protocol_;
   MfibWatch mfib_;
   RouteTally tally_;
   // Asks for another turn when a review has used up its time.
   Resume resume_;
   FamilyCounters familyCounters_;
   bool publishDue_ = true;  // interfaces or configuration have changed
   std::vector<Routing::Pim::RouteIntfKey> timersDue_;  // may have changed
   std::vector<Routing::Pim::RouteKey> registeringDue_;
   // Refused by the tables, to be tried again.
   std::unique_ptr<Retry> retry_;
   bool linksRefused_ = false;
   std::unordered_set<Routing::Pim::RouteIntfKey> timersRefused_;
   std::unordered_set<Routing::Pim::RouteKey> registeringRefused_;
   bool adopted_ = false;
   bool resuming_ = false;  // timers are the tables', or will be compared with them
   // The former process's timers were not all looked at since.
   bool formerTimersDue_ = false;
   std::optional<Published::DownstreamTable::Walk> formerTimers_;
   std::optional<double> behindSince_;  // forwarding has been behind since then
   std::deque<std::function<void()>> waiting_;
};

}
