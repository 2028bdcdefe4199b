// The rates of the streams of a mirror, from two readings of the counters that the
// forwarding process publishes. Event-loop thread only.
#pragma once

#include <optional>
#include <unordered_map>

#include "apps/mirror/Mirrors.h"

namespace Show {

struct Rate {
   double packets = 0.0;  // a second
   double bits = 0.0;     // of whole IP packets, a second
};

// How often the forwarding process publishes its counters, s. 0: never; nothing: it does
// not say.
std::optional<double> counterInterval( const Mirror& mirror );

class Rates {
 public:
   // Takes the first reading. The mirror outlives this.
   explicit Rates( const Mirror& mirror );

   // Takes another one: rates are those between the last two.
   void read();

   // Does a forwarding process live that publishes counters?
   bool known() const;

   // Nothing without counters in both readings, and where they began anew.
   //
   // Between the last packets before each reading: so it is exact for a steady stream,
   // whenever the counters were published.
   std::optional<Rate> rate( const Routing::Pim::RouteKey& key ) const;
   // Nothing without an entry in the kernel, or without a forwarding process.
   const Published::MfibCache* counters( const Routing::Pim::RouteKey& key ) const;

   using Readings =
      std::unordered_map<Routing::Pim::RouteKey, Published::MfibCache>;
   const Readings& last() const { return last_; }

 private:
   const Mirror& mirror_;
   Readings before_, last_;
};

// Runs the loop for that time, s.
void pause( Mirrors& mirrors, double seconds );

}
