// Turns IGMP and MLD messages into local members of one VRF and family (RFC 7761,
// 4.1.6: local_receiver_include and local_receiver_exclude).
//
// A group wanted from all sources has members on the (*,G) record; its excluded
// sources are on the (S,G) records. A group wanted from some sources only has
// members on their (S,G) records. Source-specific groups use the latter alone (RFC
// 4604). Event-loop thread; the constructor's arguments outlive the engine.
#pragma once

#include <map>
#include <memory>
#include <set>

#include "engine/GroupMembership.h"
#include "engine/RouterCounters.h"
#include "engine/Routes.h"

namespace Router {

class PIMSM_API MembershipEngine {
 public:
   // The limit of one group on one link; further sources are ignored.
   static constexpr size_t maxSources = 4096;

   // `policy` names the source-specific groups; null: none.
   MembershipEngine( Routes& routes, Mox::Clock& clock, const GroupPolicy* policy,
                     RouterCounters& counters );

   // Resumes reloaded members: each stays for a membership time unless a host
   // reports it again.
   void adopt();

   // The policy has changed: members that want all sources of a now source-specific
   // group lose them.
   void endSourceSpecific();

   // The interface has gone: removes its members.
   void handleIntfGone( Vantu::IntfId intfId );

   // Handles a message from another system on the interface.
   void receive( Vantu::IntfId intfId, const MembershipMessage& message );

 private:
   using RouteKey = Routing::Pim::RouteKey;

   struct Group {
      std::unique_ptr<GroupMembership> membership;
      // The state in the records: membership of the shared tree, and of each source
      // whether it is included. A state without room is tried again with the next
      // report; a group with no state in the records is forgotten until then.
      bool shared = false;
      std::map<Vantu::IpGenAddr, bool> sources;
   };
   struct Link {
      MembershipTimes times;
      std::map<Vantu::IpGenAddr, Group> groups;
   };

   void receiveReport( Vantu::IntfId intfId, const MembershipReport& report );
   void receiveQuery( Vantu::IntfId intfId, const MembershipQuery& query );
   bool accept( const MembershipRecord& record );
   void limitSources( const GroupMembership& machine, MembershipRecord& record );
   bool sourceSpecific( const Vantu::IpGenAddr& group ) const;
   GroupMembership& membership( Vantu::IntfId intfId,
                                const Vantu::IpGenAddr& group );
   void end( Vantu::IntfId intfId, const Vantu::IpGenAddr& group );
   void update( Vantu::IntfId intfId, const Vantu::IpGenAddr& group );
   void write( Vantu::IntfId intfId, const Vantu::IpGenAddr& group, Group& state,
               bool shared, const std::map<Vantu::IpGenAddr, bool>& sources );
   bool writeRecord( const RouteKey& key, Vantu::IntfId intfId, bool included,
                     bool excluded );

   Routes& routes_;
   Mox::Clock& clock_;
   const GroupPolicy* policy_;
   RouterCounters& counters_;
   std::map<Vantu::IntfId, Link> links_;
};

}
