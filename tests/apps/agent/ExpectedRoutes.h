// What a router on a link must hold, worked out from a dissector's listing of the
// link's messages: plain sets with end times, nothing of the agent's own code.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "tests/apps/agent/Captures.h"

namespace Agent {

class ExpectedRoutes {
 public:
   ExpectedRoutes( std::string router, bool requireHello )
      : router_( std::move( router ) ), requireHello_( requireHello ) {}

   void receive( const ListedMessage& message ) {
      passTo( message.seconds );
      bool hello = message.type == "Hello";
      bool asserted = message.type == "Assert";
      bool joinPrune = message.type == "Join/Prune";
      if ( message.checksum != "Good" || message.type.rfind( "v1 ", 0 ) == 0 )
         return;
      if ( message.type.rfind( "Register", 0 ) == 0 )
         return;  // no concern of routes
      if ( message.sender == router_ ) {
         ++refused_["ownPacket"];
      } else if ( !hello && !joinPrune && !asserted ) {
         ++refused_["otherType"];
      } else if ( message.destination != "224.0.0.13" &&
                  message.destination != "ff02::d" ) {
         ++refused_["notToAllRouters"];
      } else if ( hello ) {
         receiveHello( message );
      } else if ( requireHello_ && neighbors_.count( message.sender ) == 0 ) {
         ++refused_["unknownNeighbor"];
      } else if ( asserted ) {
         receiveAssert( message );
      } else if ( message.detail.rfind( "up=" + router_ + ' ', 0 ) != 0 ) {
         ++refused_["otherUpstream"];
      } else {
         receiveEntries( message );
      }
   }
   // Ends what ends by then.
   void passTo( double seconds ) {
      std::erase_if( neighbors_,
                     [&]( auto& entry ) { return entry.second.until <= seconds; } );
      std::erase_if( joined_, [&]( auto& entry ) {
         const State& state = entry.second;
         return state.until <= seconds ||
                ( state.prunedAt != 0.0 && state.prunedAt <= seconds );
      } );
      for ( auto& [group, states] : rpt_ ) {
         std::erase_if(
            states, [&]( auto& entry ) { return entry.second.until <= seconds; } );
         for ( auto& [key, state] : states ) {
            if ( state.prunedAt <= seconds ) state.prunedAt = 0.0;
         }
      }
   }
   // "(*, 225.0.0.3) joined", "(10.0.0.7, 225.0.0.3, rpt) prunePending".
   std::set<std::string> states() const {
      std::set<std::string> out;
      auto add = [&]( const States& states, const char* settled ) {
         for ( const auto& [key, state] : states ) {
            out.insert( key + ' ' +
                        ( state.prunedAt != 0.0 ? "prunePending" : settled ) );
         }
      };
      add( joined_, "joined" );
      for ( const auto& [group, states] : rpt_ ) add( states, "pruned" );
      return out;
   }
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

   // The number behind "name=" in the detail.
   static std::optional<double> number( const std::string& detail,
                                        const std::string& name ) {
      std::istringstream words( detail );
      for ( std::string word; words >> word; ) {
         if ( word.rfind( name + "=", 0 ) == 0 ) {
            return std::stod( word.substr( name.size() + 1 ) );
         }
      }
      return {};
   }

   static bool linkLocalGroup( const std::string& group ) {
      return group.rfind( "224.0.0.", 0 ) == 0 || group.rfind( "ff02::", 0 ) == 0;
   }

   // "10.0.0.4/32" without the length.
   static std::string addressOf( const std::string& prefix ) {
      return prefix.substr( 0, prefix.find( '/' ) );
   }

   void receiveHello( const ListedMessage& message ) {
      double holdtime = number( message.detail, "hold" ).value_or( 105 );
      Neighbor& neighbor = neighbors_[message.sender];
      neighbor.until = message.seconds + holdtime;
      neighbor.propagation =
         number( message.detail, "prop" ).value_or( -1000 ) / 1000;
      neighbor.override = number( message.detail, "ovr" ).value_or( -1000 ) / 1000;
   }
   // None in the captures is of a group that a router on the link has joined then.
   void receiveAssert( const ListedMessage& message ) {
      std::string group = addressOf( message.detail.substr( strlen( "group=" ) ) );
      bool routed = false;
      for ( const std::string& state : states() )
         routed = routed || state.find( ", " + group ) != std::string::npos;
      if ( linkLocalGroup( group ) ) {
         ++refused_["linkLocalGroup"];
      } else {
         ++refused_[routed ? "an assert to work out" : "noRoute"];
      }
   }
   void receiveEntries( const ListedMessage& message ) {
      double holdtime = number( message.detail, "hold" ).value();
      std::set<std::string> localGroups;
      std::istringstream words( message.detail );
      for ( std::string word; words >> word; ) {
         if ( word[1] != '(' ) continue;
         size_t comma = word.find( ',' );
         std::string group = addressOf( word.substr( comma + 1 ) );
         if ( linkLocalGroup( group ) ) {
            localGroups.insert( group );
            continue;
         }
         receiveEntry( word, message.seconds, holdtime );
      }
      if ( !localGroups.empty() ) refused_["linkLocalGroup"] += localGroups.size();
      for ( auto& [group, states] : rpt_ ) {
         std::erase_if( states,
                        []( auto& entry ) { return entry.second.doubtful; } );
      }
   }
   // J(source/length,group/length)flags
   void receiveEntry( const std::string& word, double now, double holdtime ) {
      size_t comma = word.find( ',' );
      size_t close = word.find( ')' );
      std::string source = addressOf( word.substr( 2, comma - 2 ) );
      std::string group = addressOf( word.substr( comma + 1, close - comma - 1 ) );
      std::string flags = word.substr( close + 1 );
      bool joins = word[0] == 'J';
      bool wildcard = flags.find( 'W' ) != std::string::npos;
      bool rpt = flags.find( 'R' ) != std::string::npos && !wildcard;
      double until = now + holdtime;
      if ( !rpt ) {
         std::string key = "(" + ( wildcard ? "*" : source ) + ", " + group + ")";
         if ( !joins ) return prune( joined_, key, now );
         join( joined_[key], until );
         if ( !wildcard ) return;
         for ( auto& [rptKey, state] : rpt_[group] ) state.doubtful = true;
         return;
      }
      std::string key = "(" + source + ", " + group + ", rpt)";
      if ( joins ) {
         rpt_[group].erase( key );
         return;
      }
      auto [entry, fresh] = rpt_[group].try_emplace( key );
      State& state = entry->second;
      bool stillPending = state.prunedAt != 0.0 && !state.doubtful;
      if ( fresh && pendingTime() > 0 ) state.prunedAt = now + pendingTime();
      if ( !stillPending ) state.until = std::max( state.until, until );
      state.doubtful = false;
   }
   void join( State& state, double until ) {
      state.until = std::max( state.until, until );
      state.prunedAt = 0.0;
   }
   void prune( States& states, const std::string& key, double now ) {
      auto found = states.find( key );
      if ( found == states.end() || found->second.prunedAt != 0.0 ) return;
      if ( pendingTime() > 0 ) {
         found->second.prunedAt = now + pendingTime();
      } else {
         states.erase( found );
      }
   }
   double pendingTime() const {
      if ( neighbors_.size() < 2 ) return 0.0;
      double propagation = 0.5;
      double override = 2.5;
      for ( const auto& [address, neighbor] : neighbors_ ) {
         if ( neighbor.propagation < 0 ) return 3.0;
         propagation = std::max( propagation, neighbor.propagation );
         override = std::max( override, neighbor.override );
      }
      return propagation + override;
   }

   std::string router_;
   bool requireHello_;
   std::map<std::string, Neighbor> neighbors_;
   States joined_;                      // by "(S, G)" or "(*, G)"
   std::map<std::string, States> rpt_;  // by group, then "(S, G, rpt)"
   std::map<std::string, uint64_t> refused_;
};

}
