// Keeps the register tables of one VRF and family from decoded registers and
// register-stops (RFC 7761, 4.4; RFC 4610). Nothing is sent. Where this router
// sends, only the RP's part is here: RegisterSender is the first hop's, RegisterReceiver
// answers.
//
// As the RP of a group, that is where its configured RP is an own address:
//   a register of an anycast-RP peer  the source is anycastDiscoveredSg
//   another's, sent to the RP         the source is known; with peers, to which it is
//                                     passed on, its olist has the register interface
// each for RP_Keepalive_Period from the last register.
//
// As the first hop of a source, which the RPF look-up finds on a link itself:
//   a register that this router sent  drDiscoveredSg, for Keepalive_Period;
//                                     with data it shows that registering goes on,
//                                     a null register only that the source lives
//   a register-stop from the RP       drDiscoveredSg too, since a stop answers a
//                                     register; registering ends for the suppression
//                                     time, the probe at its end included
//
// Such a source is in registerOif while its packets are registered or passed on to
// peers, and otherwise in noRegisterOif. A key that moves is in both for a moment,
// never in neither.
//
// After a restart the tables' entries last for their time from then on. Event-loop
// thread; clock, routing, configuration and counters outlive the engine.
#pragma once

#include <map>
#include <memory>

#include "engine/Journal.h"
#include "engine/Timer.h"
#include "engine/Topology.h"
#include "register/RegisterStatus.h"

namespace Router {

class PIMSM_API RegisterEngine {
 public:
   RegisterEngine( Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables,
                   Mox::Clock& clock, const Topology& topology,
                   const VrfConfig& config, bool rpOnly, Journal& journal );
   ~RegisterEngine();

   // Resumes the tables' entries after a reload.
   void adopt();

   // The configuration has changed: ends the states that it no longer supports.
   void updateConfig();

   // Handles a register sent to this router, or by it. Returns whether this router
   // serves it as the group's RP.
   bool receive( const IpPacket& packet, const PimRegister& message );
   // Handles a register-stop sent to this router.
   void receive( const IpPacket& packet, const PimRegisterStop& message );

   size_t size() const { return sources_.size(); }

 private:
   using RouteKey = Routing::Pim::RouteKey;
   struct Source;

   // Is this router the group's RP?
   bool isRpOf( const Vantu::IpGenAddr& group ) const;
   bool accept( const Vantu::IpGenAddr& group, const Vantu::IpGenAddr& source );
   void receiveSent( const RouteKey& key, bool nullRegister );
   void adoptRegistered();
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
   const bool rpOnly_;
   Journal& journal_;
   std::map<RouteKey, std::unique_ptr<Source>> sources_;
};

}
