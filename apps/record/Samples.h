// The counters of a mirror's streams, sample after sample: pages of counters and rates,
// and the fastest streams. Event-loop thread only.
#pragma once

#include <array>
#include <deque>
#include <set>
#include <unordered_map>

#include "apps/mirror/Rates.h"
#include "apps/record/Value.h"
#include "apps/store/Key.h"

namespace Fleet {

class Samples {
 public:
   // `interval`: s between two samples. The mirror outlives it.
   Samples( const Show::Mirror& mirror, double interval, size_t top );

   // Takes a sample; `now`: s, CLOCK_MONOTONIC. Returns the pages that it changed.
   std::set<uint32_t> take( double now );

   // Nothing of a page without a stream, and of `top` without a forwarding process.
   std::optional<Value> page( uint32_t page ) const;
   std::optional<Value> top() const;

 private:
   struct Stream {
      uint64_t packets = 0;
      std::deque<uint64_t> grew;  // in the last two samples, the newest first
   };
   nlohmann::ordered_json json( const RouteKey& key, const Stream& stream ) const;
   nlohmann::ordered_json frame() const;

   const Show::Mirror& mirror_;
   double interval_;
   size_t top_;
   Show::Rates rates_;
   double at_ = 0.0;  // of the last sample
   std::array<std::unordered_map<RouteKey, Stream>, Key::pages> pages_;
};

}
