// The RP's answers to registers (RFC 7761, 4.4.2): whether data is to come on its own,
// and the stop when it does. The kernel decapsulates and forwards the data; RegisterEngine
// keeps the tables. Null registers go on to the other routers of an anycast RP (RFC 4610);
// the forwarding process passes on the data. Event-loop thread; the constructor's arguments outlive it.
#pragma once

#include <map>
#include <set>

#include "engine/AccessFilter.h"
#include "engine/RouterCounters.h"
#include "engine/Sender.h"
#include "engine/SourceEngine.h"

namespace Router {

class PIMSM_API RegisterReceiver {
 public:
   // At most one stop leaves in that time for a source and router; s.
   static constexpr double stopInterval = 1.0;
   static constexpr size_t maxStops = 10000;  // in that time; others wait
   // Registers go on for that long after the data come by the source's tree, until the
   // forwarding process has followed; s.
   static constexpr double overlap = 0.5;

   RegisterReceiver( Routes& routes, SourceEngine& sources,
                     const AccessFilters& filters, const VrfConfig& config,
                     Sender& sender, Mox::Clock& clock );

   // A register for a group of which this router is the RP.
   void receive( const IpPacket& packet, const PimRegister& message );
   // A register that this router does not serve: its sender is to stop.
   void refuse( const IpPacket& packet, const PimRegister& message );

 private:
   using RouteKey = Routing::Pim::RouteKey;

   Routes& routes_;
   SourceEngine& sources_;
   const AccessFilters& filters_;
   const VrfConfig& config_;
   Sender& sender_;
   Mox::Clock& clock_;
   bool isNative( const RouteKey& key );
   bool comesByNothingElse( const IpPacket& packet,
                            const PimRegister& message ) const;
   void passOn( const IpPacket& packet, const PimRegister& message );

   // Since when the data of registered sources come by their own tree.
   std::map<RouteKey, double> native_;
   // The stops of the present interval, by source and router.
   std::set<std::pair<RouteKey, Vantu::IpGenAddr>> stopped_;
   double since_ = 0.0;
};

}
