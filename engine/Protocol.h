// PIM of one VRF and address family: the links, their neighbours, and the engines
// for the messages that arrive. Event-loop thread; the constructor's arguments
// outlive it.
#pragma once

#include <functional>

#include "engine/AccessFilter.h"
#include "engine/AssertEngine.h"
#include "engine/ForwardingEngine.h"
#include "engine/JoinPruneEngine.h"
#include "engine/Journal.h"
#include "engine/Links.h"
#include "engine/MembershipEngine.h"
#include "engine/PathSwitch.h"
#include "engine/RegisterEngine.h"
#include "engine/RegisterReceiver.h"
#include "engine/RegisterSender.h"
#include "engine/SourceEngine.h"
#include "engine/UpstreamEngine.h"
#include "packet/Message.h"

namespace Router {

class PIMSM_API Protocol {
 public:
   // Called when a value of the route, or of its record of the interface, has
   // changed. `timers`: the timers for the next process have changed. An empty
   // interface means the route itself. Must not change the model.
   using Changed = std::function<void( const Routing::Pim::RouteKey&, Vantu::IntfId,
                                       bool timers )>;

   struct Hooks {
      HostRoutes hostRoutes = {};
      // Called when the links' DR roles or neighbours may have changed.
      std::function<void()> linksChanged = [] {};
      Changed changed = []( const Routing::Pim::RouteKey&, Vantu::IntfId, bool ) {};
      // Called when registering( key ) has changed.
      std::function<void( const Routing::Pim::RouteKey& )> registering =
         []( const Routing::Pim::RouteKey& ) {};
      // How long ago a route's last packet was forwarded; see PathSwitch.
      PathSwitch::Age packetAge = {};
      // Empty: the router listens and sends nothing.
      Speech speech = {};
      // Gets the events for people; empty: nobody listens. As Journal's.
      Journal::Sink events = {};
   };

   // The configuration is read again in configChanged().
   Protocol( Vantu::AddressFamily family, const VrfConfig& config,
             const Mox::Ptr<Routing::Pim::SparseMode::Status>& model,
             Mox::Ptr<Routing::Pim::Status> pimStatus,
             Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers,
             Mox::Clock& clock, RouterCounters& counters, Hooks hooks );

   // Makes the links, before all other calls, with what a former process left of them.
   struct Kept {
      Links::Kept hello;
      MembershipEngine::Kept querier;
      // When joins were last repeated to a neighbour; 0: not known.
      UpstreamEngine::LastJoins lastJoins;
   };
   void start( const Kept& kept );

   const Links& links() const { return links_; }
   // Null without such a link.
   const Querier* querier( Vantu::IntfId intfId ) const {
      return membership_.querier( intfId );
   }
   double lastJoins( Vantu::IntfId intfId,
                     const Vantu::IpGenAddr& neighbor ) const {
      return upstream_.lastJoins( intfId, neighbor );
   }
   // This router leaves its links by intent.
   void sayGoodbye() { links_.sayGoodbye(); }

   // As Neighbors::adopt(), but ignores this router's own addresses.
   void adoptNeighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                       const Neighbors::Kept& kept );

   // Called once, when the model has been reloaded: the engines resume its states.
   void adopt( const KeptTimers& kept,
               const RegisterSender::KeptTimes& registering = {} );
   // The register times of a source, for the next process; nothing: none runs.
   std::optional<RegisterSender::Kept> registering(
      const Routing::Pim::RouteKey& key ) const {
      return registerSender_.kept( key );
   }
   // The record's timers for the next process.
   Published::Downstream timers( const Routing::Pim::RouteIntfKey& key ) const;

   // The configuration's content has changed.
   void configChanged();

   // Handles a message that arrived on the interface. REQUIRES: adopted.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const Message& message );

   // The kernel reports data of `age` seconds ago. receiveData: a packet of the
   // route's source came in by the interface; `wrong` where the route does not
   // expect present packets. receiveMore: a packet was forwarded. REQUIRES:
   // adopted.
   void receiveData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                     double age, bool wrong );
   void receiveMore( const Routing::Pim::RouteKey& key, double age ) {
      const Journal::Handling handling( journal_, Published::byData );
      const bool first = routes_.handleMore( key, age );
      sources_.receiveMore( key, age );
      if ( first ) asserts_.handleSourceTree( key );
   }
   // The source's packets come along the shared tree, at that rate in kbit/s; 0: not
   // known (RFC 7761, 4.2.1). Changes over to the source's tree, if members are there
   // and the configuration wants it.
   void receiveShared( const Routing::Pim::RouteKey& key, double rate );

   // The host's routes have changed.
   void pathsChanged();

   // As in ForwardingEngine: updates forwarding after changes.
   bool review( const std::function<bool()>& over ) {
      return forwarding_.review( over );
   }
   // Sends the joins and prunes that follow from the changes since the last call. Call
   // it after review(), at the end of a turn.
   void flush() { upstream_.flush(); }
   bool pending() const { return forwarding_.pending(); }

 private:
   void handleNeighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                        NeighborEvent event );
   void tellNeighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                      NeighborEvent event );
   void tellLink( Published::EventKind kind, Vantu::IntfId intfId );
   void tellDr( Vantu::IntfId intfId, const Vantu::IpGenAddr& former,
                const Vantu::IpGenAddr& dr );
   void updatePaths();
   void endStates( Vantu::IntfId intfId,
                   const std::vector<Vantu::IpGenAddr>& neighbors );
   void receiveRegister( const IpPacket& packet, const PimRegister& message );
   void receivePim( Link& link, const IpPacket& packet, const PimMessage& message );
   void receiveOfNeighbor( const Link& link, const IpPacket& packet,
                           const PimMessage& message );
   void review( const Routing::Pim::RouteKey& key );
   void receiveAssert( Vantu::IntfId intfId, const Vantu::IpGenAddr& sender,
                       const PimAssert& message );
   void receiveJoinPrune( const Link& link, const PimJoinPrune& message );
   void receiveMembership( const Link& link, const IpPacket& packet,
                           const MembershipMessage& message );
   PimJoinPrune permitted( Vantu::IntfId intfId, PimJoinPrune message );
   bool permits( Vantu::IntfId intfId, const Routing::Pim::RouteKey& key ) const {
      return filters_.of( intfId ).boundary.permits( key.source, key.group );
   }
   void forgetBarred();

   Vantu::AddressFamily family_;
   const VrfConfig& config_;
   Journal journal_;
   bool adopted_ = false;
   UpstreamEngine::LastJoins keptJoins_;
   std::function<void()> linksChanged_;
   Sender sender_;
   Links links_;
   Topology topology_;
   GroupPolicy policy_;
   PathSwitch pathSwitch_;
   AccessFilters filters_;
   Routes routes_;
   UpstreamEngine upstream_;
   JoinPruneEngine joinPrune_;
   MembershipEngine membership_;
   AssertEngine asserts_;
   SourceEngine sources_;
   ForwardingEngine forwarding_;
   RegisterEngine registering_;
   RegisterSender registerSender_;
   RegisterReceiver registerReceiver_;
};

}
