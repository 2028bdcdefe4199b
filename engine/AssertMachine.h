// The assert machine of one interface of one route (RFC 7761, 4.6.1 for (S,G) and
// 4.6.2 for (*,G)): it decides which router on a link forwards.
//
//    state     event                                              new state  action
//    noInfo    inferior, this router could assert                 winner     A1
//              data comes in, this router could assert            winner     A1
//              acceptable, tracking desired                       loser      A6
//    winner    inferior; its own assert is due again              winner     A3
//              preferred                                          loser      A2
//              this router could not assert any more              noInfo     A4
//    loser     preferred; acceptable from the winner              loser      A2
//              inferior, or a cancel, from the winner             noInfo     A5
//              the winner is silent, has gone or restarted        noInfo     A5
//              tracking not desired; own metric is better         noInfo     A5
//              the interface stops being the incoming one         noInfo     A5
//              a join to this router                              noInfo     A5
//
// In noInfo an (S,G) route could assert only since its tree has brought data: only then has
// the RFC its SPT bit set. A1 and A3 send an assert, A4 cancels it; at most one assert leaves a second.
// An (S,G) machine handles asserts without the RPT bit, and in noInfo one with the
// bit as inferior; a (*,G) machine handles only those with it. Where this router only
// listens, a winner keeps its state without a timer, as if its asserts were heard. State
// and winner are the record's assertInfo, the last action is its lastAssertAction, 1 to
// 6. Event-loop thread.
#pragma once

#include "engine/Config.h"
#include "engine/Timer.h"
#include "model/Intf.h"
#include "packet/Pim.h"

namespace Router {

class PIMSM_API AssertMachine {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;
   using AssertMetric = Routing::Pim::SparseMode::AssertMetric;

   // RFC 7761, 4.11, in seconds. The winner repeats its assert that much before the
   // configured time is over.
   static constexpr double assertOverrideInterval = 3.0;
   static constexpr double leastInterval = 1.0;

   struct Hooks {
      // Called when the record's state or winner has changed: what it was, and is.
      std::function<void( const Routing::Pim::SparseMode::AssertInfo&,
                          const Routing::Pim::SparseMode::AssertInfo& )>
         changed;
      // Called when a timer has ended the state; may destroy the machine.
      std::function<void()> ended;
      // Sends an assert with the metric; the infinite one cancels. Empty: this router
      // only listens.
      std::function<void( const AssertMetric& )> send = {};
      // Has the route brought data that this router forwards? Empty: yes.
      std::function<bool()> forwards = {};
   };
   // REQUIRES: the record's route lives. The configuration outlives the machine.
   AssertMachine( Mox::Clock& clock, Mox::Ptr<Intf> intf, const VrfConfig& config,
                  Hooks hooks );

   // Handles an assert whose metric holds the sender's address; an infinite metric
   // with that address is a cancel. Returns whether anything changed.
   bool receive( const AssertMetric& metric );
   // A packet came in on an interface where this router forwards it.
   void handleData();
   // A join of the route was sent to this router.
   void handleJoin();
   // The neighbour has gone or restarted.
   void handleNeighborLost( const Vantu::IpGenAddr& address );
   // Inputs of the macros may have changed.
   void review();
   // Resumes a reloaded state: a loser waits for its winner until then, a winner sends
   // its next assert; 0: after the assert time.
   void adopt( double until );
   // The time until which it waits for its winner, or of its own next assert; 0:
   // neither.
   double until() const { return expiry_.until(); }
   // The interface goes: ends the state.
   void end();

   bool active() const;

 private:
   bool wildcard() const;
   bool couldAssert() const;
   bool couldWin() const;
   bool trackingDesired() const;
   AssertMetric ownMetric() const;
   bool isPreferred( const AssertMetric& metric ) const;
   bool isAcceptable( const AssertMetric& metric ) const;
   bool isInferior( const AssertMetric& metric ) const;
   bool isIncoming() const;
   bool fromWinner( const AssertMetric& metric ) const;

   bool receiveInNoInfo( const AssertMetric& metric );
   bool receiveAsWinner( const AssertMetric& metric );
   bool receiveAsLoser( const AssertMetric& metric );
   void win( uint8_t action );
   void lose( const AssertMetric& metric, uint8_t action );
   void forget( uint8_t action );
   void handleTime();
   void send( const AssertMetric& metric );

   void set( const Routing::Pim::SparseMode::AssertInfo& info, uint8_t action );

   Mox::Ptr<Intf> intf_;
   const VrfConfig& config_;
   Hooks hooks_;
   Timer expiry_;
   double lastSent_ = -leastInterval;
   bool incoming_ = false;  // the incoming interface when the assert was lost
};

}
