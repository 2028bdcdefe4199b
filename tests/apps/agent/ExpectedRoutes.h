// What a router on a link must hold, worked out from a dissector's listing of the
// link's messages: plain sets with end times, nothing of the agent's own code.
//
// A line of the listing has tab-separated columns: file, frame, seconds, sender,
// destination, type, checksum, detail; of a join/prune the detail is
//
//    up=10.0.0.8 hold=45 J(10.0.0.4/32,225.0.0.3/32)WR P(10.0.0.7/32,...)R
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Agent {

struct ListedMessage {
   int frame = 0;
   double seconds = 0.0;
   std::string sender;
   std::string destination;
   std::string type;
   bool sound = false;  // its checksum is good
   std::string detail;
};

// The lines about one capture, by frame.
std::map<int, ListedMessage> listedMessages( const std::filesystem::path& listing,
                                             const std::string& capture );

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
