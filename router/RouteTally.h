// Counts the waiting routes, in the tables beside the routes: those without a path
// to their source or RP (unless that is this router), those about to go, and those
// changing trees.
//
// Counts again within a second after a change. Event-loop thread; the clock
// outlives it.
#pragma once

#include <functional>

#include "export/Status.h"
#include "platform/loop/Clock.h"

namespace Router {

class PIMSM_API RouteTally : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 1.0;  // s

   RouteTally( Mox::Clock& clock,
               Mox::Ptr<const Routing::Pim::SparseMode::Status> model,
               Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables,
               std::function<bool( const Vantu::IpGenAddr& )> isOwn );

   // Routes may have changed: counts within the interval.
   void touch();
   // Counts at once.
   void count();

 private:
   void onTime() override { count(); }
   bool unresolved( const Routing::Pim::SparseMode::Route& route ) const;
   void write( Routing::Pim::SparseMode::Brane::RouteCounterType type,
               uint32_t count );

   Mox::Ptr<const Routing::Pim::SparseMode::Status> model_;
   Mox::Ptr<Routing::Pim::SparseMode::Brane::Status> tables_;
   std::function<bool( const Vantu::IpGenAddr& )> isOwn_;
   double last_ = 0.0;
};

}
