// Keys that may have changed, in the order in which they did: each stands once, however
// often it changes meanwhile. Event-loop thread only.
#pragma once

#include <deque>
#include <map>

#include "apps/store/Key.h"

namespace Fleet {

struct Touch {
   double first = 0.0;  // s, CLOCK_MONOTONIC
   uint64_t turn = 0;   // of the loop, when it was last touched
   uint32_t count = 0;  // turns in which it was
   // Found by comparing with the store, so that its time is not the change's.
   bool compared = false;
};

class Queue {
 public:
   void touch( const Key& key, double now, uint64_t turn, bool compared ) {
      const auto [at, isNew] = touched_.try_emplace( key );
      Touch& own = at->second;
      if ( isNew ) {
         own = { now, turn, 0, compared };
         order_.push_back( key );
      }
      // What changes while it waits for its comparison has its time from the change.
      own.compared = own.compared && compared;
      if ( isNew || own.turn != turn ) ++own.count;
      own.turn = turn;
   }
   bool empty() const { return order_.empty(); }
   size_t size() const { return order_.size(); }
   // REQUIRES: not empty.
   std::pair<Key, Touch> take() {
      auto node = touched_.extract( order_.front() );
      order_.pop_front();
      return { std::move( node.key() ), node.mapped() };
   }

 private:
   std::map<Key, Touch> touched_;
   std::deque<Key> order_;
};

}
