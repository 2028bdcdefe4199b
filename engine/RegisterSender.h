// Registers sources on this router's links with their groups' RPs (RFC 7761, 4.4.1),
// where it is their DR. It decides; the forwarding process encapsulates the data of
// routes with `oifRegister`, towards the published RP.
//
//    state         event                              new state     action
//    noInfo        could register                     join          register
//    join          stop                               prune         do not; after 30 to 90 s less 5:
//    prune         its time is over                   join-pending  null register
//    join-pending  stop                               prune         as above
//    join-pending  none for 5 s                       join          register
//    any           could not register                 noInfo        forget
//    any           another RP                         join          register with that one
//
// Where this router is the RP itself, one of several (RFC 4610), there is nobody to register
// with, but the others have to know: each gets a null register at once and once in a
// suppression time. They join where they have listeners.
//
// A source in `join` is in the table registerOif, in the other two in noRegisterOif, and
// in each in drDiscoveredSg. Event-loop thread; the constructor's arguments outlive it.
#pragma once

#include <map>
#include <memory>

#include "engine/Journal.h"
#include "engine/Routes.h"
#include "engine/Sender.h"
#include "engine/Timer.h"
#include "register/RegisterStatus.h"

namespace Router {

class PIMSM_API RegisterSender {
 public:
   struct Context {
      Routes& routes;
      const Topology& topology;
      const GroupPolicy* policy;
      const VrfConfig& config;
      Sender& sender;
      Mox::Clock& clock;
      Journal& journal;
   };
   // `changed` is called when kept() has changed for the source.
   RegisterSender( const Context& context,
                   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables,
                   std::function<void( const Routing::Pim::RouteKey& )> changed );
   ~RegisterSender();

   // Resumes what a former process registered: `until` gives the end of a source's
   // suppression and whether its probe is out; nothing: not known.
   struct Kept {
      bool probing = false;
      double until = 0.0;
   };
   using KeptTimes =
      std::function<std::optional<Kept>( const Routing::Pim::RouteKey& )>;
   void adopt( const KeptTimes& kept );
   // For the next process; nothing where no time runs.
   std::optional<Kept> kept( const Routing::Pim::RouteKey& key ) const;

   // The route's inputs may have changed, or it has gone.
   void review( const Routing::Pim::RouteKey& key );

   // A register-stop sent to this router.
   void receive( const IpPacket& packet, const PimRegisterStop& message );

 private:
   using RouteKey = Routing::Pim::RouteKey;
   enum class State { join, prune, joinPending };
   struct Source;

   bool isFirstHop( const Routes::Route& route ) const;
   const AnycastRpConfig* ownSet( const Vantu::IpGenAddr& group ) const;
   void reviewPeers( const RouteKey& key, const Routes::Route* route, bool atOnce );
   void tellPeers( const RouteKey& key );
   Source& source( const RouteKey& key );
   void tell( Published::EventKind kind, const RouteKey& key,
              const Vantu::IpGenAddr& rp );
   void enter( const RouteKey& key, Source& source, State state );
   void stop( const RouteKey& key, Source& source );
   void handleTime( const RouteKey& key );
   void sendNull( const RouteKey& key, const Source& source );
   void publish( const RouteKey& key, bool registers );
   void forget( const RouteKey& key );
   void mark( const RouteKey& key, bool dr, bool registers );

   Context in_;
   Mox::Ptr<Routing::Pim::SparseMode::RegisterStatus> tables_;
   std::function<void( const RouteKey& )> changed_;
   std::map<RouteKey, std::unique_ptr<Source>> sources_;
   std::map<RouteKey, Timer> told_;  // to the other RPs: when they are told again
};

}
