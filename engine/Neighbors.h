// The PIM neighbours on one interface (RFC 7761, 4.3): their hellos and hold times,
// the designated router, and the time that a prune must wait for an override.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "engine/Timer.h"
#include "packet/Pim.h"

namespace Router {

// `changed` is called after neighbours came, went or changed. Before that `lost` is
// called with the address of each that went, or restarted (another generation id,
// RFC 7761, 4.3.1).
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
   static constexpr double propagationDelay = 0.5;     // s; this router's
   static constexpr double overrideIntervalOwn = 2.5;  // s; this router's

   Neighbors( Mox::Clock& clock, const Vantu::IpGenAddr& own, uint32_t drPriority,
              NeighborsObserver observer = {} );

   // Sets this router's address and priority.
   void ownIs( const Vantu::IpGenAddr& own, uint32_t drPriority );

   // Handles a hello of another router on the link. Hold time 0 means goodbye.
   // Returns false when there are too many neighbours.
   bool receiveHello( const Vantu::IpGenAddr& from, const PimHello& hello );

   // Takes over a former process's neighbour with the end of its hold time. Without
   // a known end, the default hold time starts now: the next hello comes within the
   // hello period.
   void adopt( const Vantu::IpGenAddr& from, const PimHello& hello,
               std::optional<double> until );

   struct Neighbor {
      PimHello hello;  // the last one
      std::unique_ptr<Timer> expiry;
   };
   const std::map<Vantu::IpGenAddr, Neighbor>& all() const { return neighbors_; }
   bool has( const Vantu::IpGenAddr& address ) const;
   size_t size() const { return neighbors_.size(); }

   // RFC 7761, 4.3.2: highest priority, then highest address. Addresses alone when
   // some neighbour has no priority option.
   bool iAmDr() const;

   // J/P_Override_Interval(I) in seconds (RFC 7761, 4.3.3 and 4.11).
   double overrideInterval() const;
   // The start value of the prune-pending timer: zero unless more than one
   // neighbour might override (RFC 7761, 4.5.1).
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
