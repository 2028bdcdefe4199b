// PIM of one VRF and address family: the links, their neighbours, and the engines on
// what arrives there. Event-loop thread; all that it is given outlives it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "engine/AssertEngine.h"
#include "engine/ForwardingEngine.h"
#include "engine/JoinPruneEngine.h"
#include "engine/MembershipEngine.h"
#include "engine/RegisterEngine.h"
#include "engine/SourceEngine.h"
#include "packet/Message.h"

namespace Router {

class PIMSM_API Protocol {
 public:
   // One interface's part in this family.
   struct Link {
      std::vector<Vantu::IpGenAddr> own;
      std::unique_ptr<Neighbors> neighbors;
   };

   // The configuration is looked at again in configChanged(). The links' DR roles and
   // neighbours may be others when `linksChanged` is called; `changed` is as of
   // ForwardingEngine.
   Protocol(
      Vantu::AddressFamily family, const VrfConfig& config,
      const Mox::Ptr<Routing::Pim::SparseMode::Status>& model,
      Mox::Ptr<Routing::Pim::Status> pimStatus,
      Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> registers,
      Mox::Clock& clock, RouterCounters& counters, HostRoutes hostRoutes,
      std::function<void()> linksChanged,
      std::function<void( const Routing::Pim::RouteKey&, Vantu::IntfId )> changed );

   const std::map<Vantu::IntfId, Link>& links() const { return links_; }

   // As of Neighbors; unless it is this router itself.
   void adoptNeighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                       const PimHello& hello, std::optional<double> until );

   // Once, when the model has been reloaded: the engines take its states up.
   void adopt( const KeptTimers& kept );
   // What the next process is to know of a record's timers.
   Published::Downstream timers( const Routing::Pim::RouteIntfKey& key ) const;

   // The configuration that was given says something else.
   void configChanged();

   // A message that arrived on the interface. REQUIRES: adopted.
   void receive( Vantu::IntfId intfId, const IpPacket& packet,
                 const Message& message );

   // The kernel tells of data, the last so many seconds ago: a packet of the route's
   // source came in by the interface, `wrong` where the route does not expect what
   // comes now; one was forwarded. REQUIRES: adopted.
   void receiveData( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                     double age, bool wrong );
   void receiveMore( const Routing::Pim::RouteKey& key, double age ) {
      sources_.receiveMore( key, age );
   }

   // The host's routes have changed.
   void pathsChanged();

   // As of ForwardingEngine: forwarding follows what has changed.
   bool review( const std::function<bool()>& over ) {
      return forwarding_.review( over );
   }
   bool pending() const { return forwarding_.pending(); }

 private:
   void updateLinks();
   void updateLink( const InterfaceConfig& interface );
   void removeLink( Vantu::IntfId intfId );
   void endStates( Vantu::IntfId intfId );
   void updateDr( Vantu::IntfId intfId );
   void receivePim( Vantu::IntfId intfId, const Link& link, const IpPacket& packet,
                    const PimMessage& message );
   void receiveOfNeighbor( Vantu::IntfId intfId, const Link& link,
                           const IpPacket& packet, const PimMessage& message );
   void receiveJoinPrune( Vantu::IntfId intfId, const Link& link,
                          const PimJoinPrune& message );

   Vantu::AddressFamily family_;
   const VrfConfig& config_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Mox::Clock& clock_;
   RouterCounters& counters_;
   std::function<void()> linksChanged_;
   bool adopted_ = false;
   Topology topology_;
   GroupPolicy policy_;
   Routes routes_;
   JoinPruneEngine joinPrune_;
   MembershipEngine membership_;
   AssertEngine asserts_;
   SourceEngine sources_;
   ForwardingEngine forwarding_;
   RegisterEngine registering_;
   std::map<Vantu::IntfId, Link> links_;
};

}
