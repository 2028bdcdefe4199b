// One interface of the router in one family: its addresses, its neighbours, and what
// this router says there. Event-loop thread; clock and sender outlive it.
#pragma once

#include "engine/HelloMachine.h"
#include "engine/Neighbors.h"

namespace Router {

class PIMSM_API Link {
 public:
   // REQUIRES: `own` not empty, as in HelloMachine::configIs().
   Link( Mox::Clock& clock, Sender& sender, const InterfaceConfig& config,
         const std::vector<Vantu::IpGenAddr>& own, NeighborsObserver observer,
         const std::optional<HelloMachine::Kept>& kept );
   Link( const Link& ) = delete;
   Link& operator=( const Link& ) = delete;

   void configIs( const InterfaceConfig& config,
                  const std::vector<Vantu::IpGenAddr>& own );

   Vantu::IntfId intfId() const { return config_.name; }
   const InterfaceConfig& config() const { return config_; }
   // The address that PIM uses.
   const Vantu::IpGenAddr& address() const { return own_.front(); }
   bool isOwn( const Vantu::IpGenAddr& address ) const;
   // Is it in a subnet of the interface?
   bool isOnLink( const Vantu::IpGenAddr& address ) const;
   // The hold time of this router's joins, in seconds (RFC 7761, 4.11).
   uint16_t joinHoldtime() const {
      constexpr double kIntervals = 3.5;
      return static_cast<uint16_t>( config_.joinPruneInterval * kIntervals );
   }

   Neighbors& neighbors() { return neighbors_; }
   const Neighbors& neighbors() const { return neighbors_; }
   HelloMachine& hello() { return hello_; }
   const HelloMachine& hello() const { return hello_; }

   // Sends a PIM message to all routers of the link, and a hello before it where one
   // is due. `to` is the neighbour that it concerns; unspecified: all. Sends nothing
   // on a passive interface, or if the router listens only. Returns false if it could
   // not leave.
   bool send( const Vantu::IpGenAddr& to, PimMessage::Body body );

 private:
   static OwnHello ownHello( const InterfaceConfig& config,
                             const std::vector<Vantu::IpGenAddr>& own );

   Sender& sender_;
   InterfaceConfig config_;
   std::vector<Vantu::IpGenAddr> own_;
   Neighbors neighbors_;
   HelloMachine hello_;
};

}
