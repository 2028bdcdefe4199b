// What a router on a link must hold, worked out from a dissector's listing of the
// link's messages: plain sets with end times, nothing of the agent's own code.
#pragma once

#include <map>
#include <set>
#include <string>

#include "tests/apps/agent/Captures.h"

namespace Agent {

class ExpectedRoutes {
 public:
   ExpectedRoutes( std::string router, bool requireHello )
      : router_( std::move( router ) ), requireHello_( requireHello ) {}

   void receive( const ListedMessage& message );
   // Ends what ends by then.
   void passTo( double seconds );

   // "(*, 225.0.0.3) joined", "(10.0.0.7, 225.0.0.3, rpt) prunePending".
   std::set<std::string> states() const;
   // How many messages or entries count for nothing, by reason.
   const std::map<std::string, uint64_t>& refused() const { return refused_; }

 private:
   struct State {
      double until = 0.0;
      double prunedAt = 0.0;  // when a pending prune counts; 0: none pending
      bool doubtful = false;  // the message wants the whole group again
   };
   struct Neighbor {
      double until = 0.0;
      double propagation = -1.0;  // s; negative: does not say
      double override = -1.0;
   };
   using States = std::map<std::string, State>;

   void receiveHello( const ListedMessage& message );
   void receiveAssert( const ListedMessage& message );
   void receiveEntries( const ListedMessage& message );
   void receiveEntry( const std::string& word, double now, double holdtime );
   void join( State& state, double until );
   void prune( States& states, const std::string& key, double now );
   double pendingTime() const;

   std::string router_;
   bool requireHello_;
   std::map<std::string, Neighbor> neighbors_;
   States joined_;                      // by "(S, G)" or "(*, G)"
   std::map<std::string, States> rpt_;  // by group, then "(S, G, rpt)"
   std::map<std::string, uint64_t> refused_;
};

}
