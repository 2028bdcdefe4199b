// Keeps forwarding and upstream states of one VRF and family as the protocol macros
// say.
//
//   watches  routes, their upstream and interface records, and the PIM interfaces;
//            any change of what the macros read marks the group
//   writes   forward and fastForward of each record, upJoinState and the upstream
//            (S,G,rpt) state (RFC 7761, 4.5.4 to 4.5.7, nothing is sent); on the
//            (S,G) routes of a group a record for each interface of its (*,G) route,
//            so that a route's outgoing list is its records with `forward`
//   wakes    when review() is called, at the end of a turn of the loop
//
// An interface never forwards what comes in by it. Event-loop thread; the model
// outlives the engine.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "model/Status.h"

namespace Agent {

class ForwardingEngine {
 public:
   explicit ForwardingEngine( Mox::Ptr<Routing::Pim::SparseMode::Status> model );
   ~ForwardingEngine();
   ForwardingEngine( const ForwardingEngine& ) = delete;
   ForwardingEngine& operator=( const ForwardingEngine& ) = delete;

   // Reviews marked groups, at least one, until `over` says true. Is all done?
   bool review( const std::function<bool()>& over );

   // Is something marked?
   bool pending() const { return !marked_.empty(); }

 private:
   using Route = Routing::Pim::SparseMode::Route;
   using Group = Vantu::IpGenAddr;
   class MoxStatus;
   class MoxPimIntf;
   class MoxRoute;

   void mark( const Group& group ) { marked_.insert( group ); }
   void markAll();
   void handleRoute( const Routing::Pim::RouteKey& key );
   void handlePimIntf( const Vantu::IntfId& intfId );
   void reviewGroup( const Group& group );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   std::set<Group> marked_;
   // By group, then source; the (*,G) route first.
   std::map<Group, std::map<Vantu::IpGenAddr, std::unique_ptr<MoxRoute>>> groups_;
   std::map<Vantu::IntfId, std::unique_ptr<MoxPimIntf>> pimIntfs_;
   std::unique_ptr<MoxStatus> moxStatus_;
};

}
