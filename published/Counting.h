// Counts the model's sources and groups, in the agent and in a reader alike.
//
//   watches  the model's routes
//   writes   the model's sources with their groups, a (*,G) route under the
//            unspecified address, as RouteBraneReaderSm keeps a mirror's; the sources
//            of each group that has a route, which are those of its (S,G) routes; the
//            histograms, through SgCountSm
//   wakes    with each route that comes or goes, at once
//
// SgCountSm files a group only when a source comes or goes, and leaves removed ones
// in entry 0. Here entry 0 holds the groups without a source, and nothing without a
// route is in any entry.
//
// In a reader it is made after RouteBraneReaderSm, which must handle a route before
// its source. Destroyed before the model's owner; the sources stay. Event-loop
// thread only.
#pragma once

#include "count/SgCountSm.h"

namespace Published {

class PIMSM_API Counting : public Routing::Pim::SparseMode::Status::NotifieeConst {
 public:
   // Counts the existing routes. REQUIRES: not null.
   explicit Counting( Mox::Ptr<Routing::Pim::SparseMode::Status> model );

   const Routing::Pim::SparseMode::SourceCount& sources() const {
      return *sourceCount_;
   }
   const Routing::Pim::SparseMode::GroupCount& groups() const {
      return *groupCount_;
   }

 private:
   using NotifieeConst::onRoute;
   void onRoute( const Routing::Pim::RouteKey& key ) override;
   void add( const Routing::Pim::RouteKey& key );
   void removeSource( const Routing::Pim::RouteKey& key );
   void removeGroup( const Routing::Pim::RouteKey& key );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Ptr<Routing::Pim::SparseMode::GroupSourceMap> groupSources_;
   Mox::Ptr<Routing::Pim::SparseMode::SourceCount> sourceCount_;
   Mox::Ptr<Routing::Pim::SparseMode::GroupCount> groupCount_;
   Mox::Ptr<Routing::Pim::SparseMode::SgCountSm> counter_;
};

}
