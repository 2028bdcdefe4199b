// The events that stand behind changes of the tables.
#pragma once

#include <map>
#include <tuple>

#include "apps/mirror/Events.h"
#include "apps/mirror/Mirrors.h"

namespace Show {

class Reasons {
 public:
   // An event is a change's reason for this time; the tables follow within a second.
   static constexpr double lifetime = 3.0;  // s

   explicit Reasons( const std::string& root ) : events_( root ) {}

   // The newest event behind a change of the route, or of its interface there; null:
   // none. `now`: seconds, CLOCK_MONOTONIC. Valid until the next call.
   const Logged* of( const Mirror& mirror, const Routing::Pim::RouteKey& route,
                     Vantu::IntfId intfId, double now );

 private:
   using Key = std::tuple<std::string, Routing::Pim::RouteKey, Vantu::IntfId>;

   void take( double now );

   Events events_;
   std::map<Key, Logged> newest_;
   double pruned_ = 0.0;
};

}
