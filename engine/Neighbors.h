// The PIM neighbours on one interface (RFC 7761, 4.3): who has said hello, until
// when, who is the designated router, and how long a prune must wait for an
// override.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "engine/Timer.h"
#include "packet/Pim.h"

namespace Router {

// Told after neighbours came, went or changed; of each that went, or that has started
// anew since (another generation id, RFC 7761, 4.3.1), by its address first.
struct NeighborsObserver {
   std::function<void()> changed = [] {};
   std::function<void( const Vantu::IpGenAddr& )> lost =
      []( const Vantu::IpGenAddr& ) {};
};

class PIMSM_API Neighbors {
 public:
   static constexpr size_t maxNeighbors = 1024;
   static constexpr double defaultHoldtime = 105.0;  // s
   static constexpr double hellosInHoldtime = 3.5;
   static constexpr double propagationDelay = 0.5;     // s; of this router
   static constexpr double overrideIntervalOwn = 2.5;  // s; of this router

   Neighbors( Mox::Clock& clock, const Vantu::IpGenAddr& own, uint32_t drPriority,
              NeighborsObserver observer = {} );

   // Another own address or priority.
   void ownIs( const Vantu::IpGenAddr& own, uint32_t drPriority );

   // A hello of another router on the link. Hold time 0 says goodbye. False: there are
   // too many others.
   bool receiveHello( const Vantu::IpGenAddr& from, const PimHello& hello );

   // Who said hello to a former process, until when it holds; nothing: not known, the
   // default hold time from now on. Its next hello comes within its hello period.
   void adopt( const Vantu::IpGenAddr& from, const PimHello& hello,
               std::optional<double> until );

   struct Neighbor {
      PimHello hello;  // the last
      std::unique_ptr<Timer> expiry;
   };
   const std::map<Vantu::IpGenAddr, Neighbor>& all() const { return neighbors_; }
   bool has( const Vantu::IpGenAddr& address ) const;
   size_t size() const { return neighbors_.size(); }

   // RFC 7761, 4.3.2: highest priority, then highest address; addresses alone when
   // some neighbour has no priority option.
   bool iAmDr() const;

   // J/P_Override_Interval(I) in seconds (RFC 7761, 4.3.3 and 4.11).
   double overrideInterval() const;
   // What the prune-pending timer starts with: zero unless there is more than one
   // neighbour who might override (RFC 7761, 4.5.1).
   double prunePendingTime() const { return size() > 1 ? overrideInterval() : 0.0; }

 private:
   void forget( const Vantu::IpGenAddr& address );
   bool everyNeighborDelays() const;

   Mox::Clock& clock_;
   Vantu::IpGenAddr own_;
   uint32_t drPriority_;
   NeighborsObserver observer_;
   std::map<Vantu::IpGenAddr, Neighbor> neighbors_;
};

}
