// The PIM neighbours on one interface (RFC 7761, 4.3): their hellos and hold times,
// the designated router, and the time that a prune must wait for an override.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "engine/Timer.h"
#include "packet/Pim.h"

namespace Router {

enum class NeighborEvent {
   came,
   restarted,  // another generation id (RFC 7761, 4.3.1)
   moved,      // other secondary addresses
   gone
};

// `event` is called with the address of a neighbour; one that is gone has left already.
// `changed` is called after one or more neighbours came, went or changed.
struct NeighborsObserver {
   std::function<void()> changed = [] {};
   std::function<void( const Vantu::IpGenAddr&, NeighborEvent )> event =
      []( const Vantu::IpGenAddr&, NeighborEvent ) {};
};

// What this router says of itself on the link.
struct OwnHello {
   Vantu::IpGenAddr address;
   uint32_t drPriority = 1;
   uint16_t propagationDelay = 500;   // ms
   uint16_t overrideInterval = 2500;  // ms
   bool joinSuppression = true;
};

class PIMSM_API Neighbors {
 public:
   static constexpr size_t maxNeighbors = 1024;
   static constexpr double defaultHoldtime = 105.0;  // s
   static constexpr double hellosInHoldtime = 3.5;

   Neighbors( Mox::Clock& clock, const OwnHello& own,
              NeighborsObserver observer = {} );

   void ownIs( const OwnHello& own );

   // Handles a hello of another router on the link. Hold time 0 means goodbye.
   // Returns false when there are too many neighbours.
   bool receiveHello( const Vantu::IpGenAddr& from, const PimHello& hello );

   // A former process's neighbour: the end of its hold time, and since when it is one
   // (0: not known).
   struct Kept {
      PimHello hello;
      std::optional<double> until = std::nullopt;
      double since = 0.0;
   };
   // Takes it over. Without a known end, the default hold time starts now: the next
   // hello comes within the hello period. No event is told.
   void adopt( const Vantu::IpGenAddr& from, const Kept& kept );

   struct Neighbor {
      PimHello hello;  // the last one, without addresses that another told since
      std::unique_ptr<Timer> expiry;
      double since = 0.0;  // 0: not known
   };
   const std::map<Vantu::IpGenAddr, Neighbor>& all() const { return neighbors_; }
   bool has( const Vantu::IpGenAddr& address ) const;
   // The primary address of the neighbour that has the address, as its primary one or
   // as one of its list: NBR(I, A) of RFC 7761, 4.1.6. The unspecified address
   // without one.
   Vantu::IpGenAddr primaryOf( const Vantu::IpGenAddr& address ) const;
   size_t size() const { return neighbors_.size(); }

   // RFC 7761, 4.3.2: highest priority, then highest address. Addresses alone when
   // some neighbour has no priority option.
   bool iAmDr() const { return dr() == own_.address; }
   Vantu::IpGenAddr dr() const;

   // In seconds (RFC 7761, 4.3.3 and 4.11): J/P_Override_Interval(I), the part of it
   // in which routers override, and whether joins of others suppress own ones.
   double joinPruneOverrideInterval() const;
   double overrideInterval() const;
   bool joinSuppression() const;
   // The start value of the prune-pending timer: zero unless more than one
   // neighbour might override (RFC 7761, 4.5.1).
   double prunePendingTime() const {
      return size() > 1 ? joinPruneOverrideInterval() : 0.0;
   }

 private:
   void forget( const Vantu::IpGenAddr& address );
   void takeAddresses( const Vantu::IpGenAddr& by,
                       const std::vector<Vantu::IpGenAddr>& addresses );
   // The greatest of the told times, or the default if a neighbour tells none; ms.
   uint16_t slowest( uint16_t LanPruneDelay::*time, uint16_t own,
                     uint16_t otherwise ) const;

   Mox::Clock& clock_;
   OwnHello own_;
   NeighborsObserver observer_;
   std::map<Vantu::IpGenAddr, Neighbor> neighbors_;
};

}
