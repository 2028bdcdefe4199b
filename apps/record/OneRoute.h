// A model of one route and its group's shared tree at a time, read from the tables when it
// is wanted: the macros answer as in a whole mirror, at the cost of what is asked alone.
// Event-loop thread only.
#pragma once

#include <memory>

#include "apps/mirror/Mirrors.h"
#include "published/PimMirror.h"

namespace Fleet {

class OneRoute {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   // The interfaces that a route has in the tables.
   using Intfs =
      std::function<const std::vector<Vantu::IntfId>&( const RouteKey& key )>;

   // Gives the mirror, which outlives it and has no model of its own, this model.
   OneRoute( Show::Mirror& mirror, Intfs intfs );
   ~OneRoute();
   OneRoute( const OneRoute& ) = delete;
   OneRoute& operator=( const OneRoute& ) = delete;

   enum Result { absent, loaded, unreadable };
   // Loads a route in place of the former one. Unreadable is what is being written, and
   // will be notified again, or damaged.
   Result load( const RouteKey& key );
   // REQUIRES: the last load() has loaded it.
   const Show::Route& route() const;

 private:
   Result add( const RouteKey& key );

   Show::Mirror& mirror_;
   Intfs intfs_;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   std::unique_ptr<Published::PimMirror> pim_;
   RouteKey key_;
};

}
