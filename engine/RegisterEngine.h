// Keeps the register tables of one VRF and family from decoded registers and
// register-stops (RFC 7761, 4.4; RFC 4610). Nothing is sent.
//
// As the RP of a group, that is where its configured RP is an own address:
//   a register of an anycast-RP peer  the source is anycastDiscoveredSg
//   another's, sent to the RP         the source is known; with peers, to which it is
//                                     passed on, its olist has the register interface
// each for rpKeepalive from the last register.
//
// As the first hop of a source, which the RPF look-up finds on a link itself:
//   a register that this router sent  drDiscoveredSg, for keepalive from the last;
//                                     with data it shows that registering goes on,
//                                     a null register only that the source lives
//   a register-stop from the RP       drDiscoveredSg too, since a stop answers a
//                                     register; registering ends for suppression
//
// A source of any of these stands in registerOif or in noRegisterOif: in the former
// while its packets are registered, or passed on to peers. A key that moves stands
// for a moment in both, never in neither.
//
// What stands in the tables after a restart lives for its time from then on.
// Event-loop thread; clock, routing, configuration and counters outlive the engine.
#pragma once

#include <map>
#include <memory>

#include "engine/RouterCounters.h"
#include "engine/Timer.h"
#include "engine/Topology.h"
#include "register/RegisterStatus.h"

namespace Router {

class PIMSM_API RegisterEngine {
 public:
   static constexpr double keepalive = 210;    // s; Keepalive_Period
   static constexpr double rpKeepalive = 185;  // s; RP_Keepalive_Period
   // s; Register_Suppression_Time, the probe at its end included. Without the
   // spread of RFC 7761, 4.4.1, which keeps many senders apart.
   static constexpr double suppression = 60;

   RegisterEngine( Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables,
                   Mox::Clock& clock, const Topology& topology,
                   const VrfConfig& config, RouterCounters& counters );
   ~RegisterEngine();

   // Takes up what the tables hold after a reload.
   void adopt();

   // The configuration has changed: what no longer holds by it ends.
   void updateConfig();

   // A register sent to this router, or by it.
   void receive( const IpPacket& packet, const PimRegister& message );
   // A register-stop sent to this router.
   void receive( const IpPacket& packet, const PimRegisterStop& message );

   size_t size() const { return sources_.size(); }

 private:
   using RouteKey = Routing::Pim::RouteKey;
   struct Source;

   bool isOwn( const Vantu::IpGenAddr& address ) const;
   const RpConfig* ownRp( const Vantu::IpGenAddr& group ) const;
   bool accept( const Vantu::IpGenAddr& group, const Vantu::IpGenAddr& source );
   void receiveSent( const RouteKey& key, bool nullRegister );
   void receiveStop( const RouteKey& key );
   Source& source( const RouteKey& key );
   void update( const RouteKey& key );
   void publish( const RouteKey& key, const Source& source );
   bool tryPublish( const RouteKey& key, const Source& source );
   bool stands( const RouteKey& key ) const;
   void remove( const RouteKey& key );

   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables_;
   Mox::Clock& clock_;
   const Topology& topology_;
   const VrfConfig& config_;
   RouterCounters& counters_;
   std::map<RouteKey, std::unique_ptr<Source>> sources_;
};

}
