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
#include <unordered_map>

#include "engine/AccessFilter.h"
#include "engine/HoldTimer.h"
#include "engine/Journal.h"
#include "engine/Links.h"
#include "engine/Routes.h"
#include "engine/SpecificQueries.h"

namespace Router {

class PIMSM_API MembershipEngine {
 public:
   // The limit of one group on one link; further sources are ignored.
   static constexpr size_t maxSources = 4096;

   // `policy` names the source-specific groups; null: none. `filters` say what hosts
   // may ask for.
   MembershipEngine( Routes& routes, Links& links, Sender& sender,
                     Mox::Clock& clock, const GroupPolicy* policy,
                     const AccessFilters& filters, Journal& journal );

   // What a former process left of the queriers; empty: nothing.
   using Kept = std::function<std::optional<Querier::Kept>( Vantu::IntfId )>;
   // The links have changed, or are there for the first time. `kept` serves new ones.
   void updateLinks( const Kept& kept = {} );
   // Null without such a link.
   const Querier* querier( Vantu::IntfId intfId ) const;

   // Resumes reloaded members: each stays for a membership time unless a host
   // reports it again, or until a former process's question would be answered.
   void adopt( const KeptTimers& kept );
   // Writes the record's time for the next process.
   void tell( Published::Downstream& record ) const;

   // The policy has changed: members that want all sources of a group that has no
   // shared tree any more lose them.
   void endUnshared();

   // The interface has gone: removes its members.
   void handleIntfGone( Vantu::IntfId intfId );

   // Handles a message from another system on the interface.
   void receive( const Link& link, const Vantu::IpGenAddr& from,
                 const MembershipMessage& message );

 private:
   using RouteKey = Routing::Pim::RouteKey;

   struct Group {
      std::unique_ptr<GroupMembership> membership;
      std::unique_ptr<SpecificQueries> queries;  // null until the first
      bool leaving = false;  // the last report took members away
      bool told = false;  // times for the next process differ from the usual ones
      // The state in the records: membership of the shared tree, and of each source
      // whether it is included. A state without room is tried again with the next
      // report; a group with no state in the records is forgotten until then.
      bool shared = false;
      std::map<Vantu::IpGenAddr, bool> sources;
   };
   // What hosts on a link get without asking: the whole group, or these sources.
   struct Fixed {
      bool all = false;
      std::set<Vantu::IpGenAddr> sources;
      bool operator==( const Fixed& ) const = default;
   };
   struct Hosts {
      Hosts( Mox::Clock& clock, Sender& sender, Journal& journal,
             Vantu::IntfId intfId )
         : querier( clock, sender, journal, intfId ) {}
      Querier querier;
      uint32_t groupLimit = MembershipConfig().groupLimit;
      std::map<Vantu::IpGenAddr, Group> groups;
      std::map<Vantu::IpGenAddr, Fixed> fixed;
   };

   void receiveReport( Vantu::IntfId intfId, const MembershipReport& report );
   void receiveQuery( Vantu::IntfId intfId, const Vantu::IpGenAddr& from,
                      const MembershipQuery& query );
   bool accept( Vantu::IntfId intfId, const MembershipRecord& record,
                uint8_t version );
   bool permit( Vantu::IntfId intfId, MembershipRecord& record );
   bool permits( Vantu::IntfId intfId, const RouteKey& key );
   void fix( Vantu::IntfId intfId, const std::vector<StaticGroupConfig>& groups );
   Hosts& hosts( Vantu::IntfId intfId );
   void tellTimes( Vantu::IntfId intfId, const Vantu::IpGenAddr& group );
   void ask( Vantu::IntfId intfId, const Vantu::IpGenAddr& group,
             const std::vector<Vantu::IpGenAddr>& sources );
   void limitSources( const GroupMembership& machine, MembershipRecord& record );
   std::optional<Refusal> refusalOfShared( const Vantu::IpGenAddr& group ) const;
   GroupMembership& membership( Vantu::IntfId intfId,
                                const Vantu::IpGenAddr& group );
   void end( Vantu::IntfId intfId, const Vantu::IpGenAddr& group );
   void update( Vantu::IntfId intfId, const Vantu::IpGenAddr& group );
   void write( Vantu::IntfId intfId, const Vantu::IpGenAddr& group, Group& state,
               bool shared, const std::map<Vantu::IpGenAddr, bool>& sources );
   bool writeRecord( const RouteKey& key, Vantu::IntfId intfId, bool included,
                     bool excluded );

   Routes& routes_;
   Links& links_;
   Sender& sender_;
   Mox::Clock& clock_;
   const GroupPolicy* policy_;
   const AccessFilters& filters_;
   Journal& journal_;
   bool adopted_ = false;
   // Each published timer looks here; names would be compared in a tree.
   std::unordered_map<Vantu::IntfId, Hosts> hosts_;
};

}
