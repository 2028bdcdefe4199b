// Turns what hosts say by IGMP and MLD into local members of one VRF and family
// (RFC 7761, 4.1.6: local_receiver_include and local_receiver_exclude).
//
// A group wanted from all sources is a member of the (*,G) record, the sources that it
// excludes are on the (S,G) records; a group wanted from some sources only is a
// member of their (S,G) records. Source-specific groups take the latter alone (RFC
// 4604). Event-loop thread; what the engine is given outlives it.
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
   // Of one group on one link; what hosts say of more of them does not count.
   static constexpr size_t maxSources = 4096;

   // `policy` says which groups are source-specific; null: none.
   MembershipEngine( Routes& routes, Mox::Clock& clock, const GroupPolicy* policy,
                     RouterCounters& counters );

   // Takes up the members that a reload left: each stays for a membership time unless
   // a host says so again.
   void adopt();

   // The policy has changed: who wants all sources of groups that are source-specific
   // now, gets none.
   void endSourceSpecific();

   // The interface has gone, and its members.
   void handleIntfGone( Vantu::IntfId intfId );

   // A message on the interface, from another than this router.
   void receive( Vantu::IntfId intfId, const MembershipMessage& message );

 private:
   using RouteKey = Routing::Pim::RouteKey;

   struct Group {
      std::unique_ptr<GroupMembership> membership;
      // What stands in the records: members of the shared tree, and of sources
      // whether they are included. What found no room is tried again with the next
      // report; a group of which nothing stands is forgotten until then.
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
