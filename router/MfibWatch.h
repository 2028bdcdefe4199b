// What the forwarding process tells of one VRF and family: packets without a route, or
// from the wrong side, and the counters of those that flow.
//
//    watches  the forwarding process's tables, whenever they are there
//    writes   the routes' kernelStats; tells the engines of data
//
// Event-loop thread; all that it is given outlives it.
#pragma once

#include <memory>
#include <unordered_map>

#include "engine/Protocol.h"
#include "published/MfibStatus.h"

namespace Router {

class PIMSM_API MfibWatch {
 public:
   // An interface counts as wrong for present packets for this time. While they
   // come, the kernel reports them every 3 s.
   static constexpr double wrongVifTime = 3.0;  // s

   // A rate is measured over at least this time.
   static constexpr double rateTime = 0.5;  // s

   // `tables` are mounted as reader. `real` is the clock of their times.
   MfibWatch( Mox::Ptr<Published::MfibStatus> tables,
              Mox::Ptr<Routing::Pim::SparseMode::Status> model, Protocol& protocol,
              Mox::Clock& real );
   ~MfibWatch();

   // How long ago the route's last packet was forwarded, s; infinity if none is known. Of
   // a (*,G) route packets of sources on its tree count.
   double packetAge( const Routing::Pim::RouteKey& key ) const;

   // The engines have resumed the reloaded states: the tables' content counts now.
   void adopted();

 private:
   class MoxTables;

   void readAll();
   void readUpcall( const Routing::Pim::RouteIntfKey& key );
   void readCache( const Routing::Pim::RouteKey& key );
   void readShared( const Published::MfibCache& cache );
   double age( double time ) const;

   Mox::Ptr<Published::MfibStatus> tables_;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Protocol& protocol_;
   Mox::Clock& real_;
   bool adopted_ = false;
   // What the sources on shared trees had sent by when.
   struct Sent {
      double time;  // s
      uint64_t packets, bytes, wrongIf;
   };
   std::unordered_map<Routing::Pim::RouteKey, Sent> sent_;
   // When the groups' last packets came, of these sources.
   std::unordered_map<Vantu::IpGenAddr, double> lastShared_;
   std::unique_ptr<MoxTables> moxTables_;
};

}
