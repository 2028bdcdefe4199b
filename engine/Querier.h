// This router's queries on one link, and the election of the querier (RFC 3376, 6.6;
// RFC 3810, 7.6): the lowest address asks.
//
//    state        event                               new state    action
//    -            first configuration                 querier      general queries at start-up
//    querier      general query is due                querier      general query
//    querier      query from a lower address          non-querier  its times apply
//    non-querier  such a query                        non-querier  its times apply
//    non-querier  none for the other querier's time   querier      general query
//
// A router that only listens takes every query for the querier's. Event-loop thread;
// the constructor's arguments outlive it.
#pragma once

#include "engine/Config.h"
#include "engine/GroupMembership.h"
#include "engine/Journal.h"
#include "engine/Sender.h"

namespace Router {

class PIMSM_API Querier {
 public:
   // What the next process needs, so that hosts and routers see no restart.
   struct Kept {
      Vantu::IpGenAddr querier;  // unspecified: not known
      double otherUntil = 0.0;   // time when the other querier is given up; 0: none
      double nextQuery = 0.0;    // time of this router's next query; 0: none
      uint32_t startupLeft = 0;  // general queries at the shorter interval
      bool operator==( const Kept& ) const = default;
   };

   Querier( Mox::Clock& clock, Sender& sender, Journal& journal,
            Vantu::IntfId intfId );

   // Call it before the first configIs().
   void adopt( const Kept& kept ) { adopted_ = kept; }
   // All zero where this router only listens.
   Kept kept() const;

   // `own` is this router's address there. The first call begins.
   void configIs( const MembershipConfig& config, const Vantu::IpGenAddr& own,
                  uint32_t mtu );

   // Does this router ask? Also true where it only listens.
   bool asks() const { return !speaks() || !other_.running(); }
   // The times in force on the link.
   const MembershipTimes& times() const { return times_; }

   // Takes a query of another system; false: it is not the querier's.
   bool receive( const Vantu::IpGenAddr& from, const MembershipQuery& query );

   // Asks for the group, or some of its sources. `suppress`: other routers keep their
   // timers. Sends nothing where this router only listens.
   void ask( const Vantu::IpGenAddr& group,
             const std::vector<Vantu::IpGenAddr>& sources, bool suppress );

 private:
   bool speaks() const { return sender_.speaks(); }
   void useOwnTimes();
   void handleQueryDue();
   void handleOtherGone();
   void tellQuerier( const Vantu::IpGenAddr& querier );
   bool send( MembershipQuery query );

   Mox::Clock& clock_;
   Sender& sender_;
   Journal& journal_;
   Vantu::IntfId intfId_;
   MembershipConfig config_;
   Vantu::IpGenAddr own_;
   uint32_t mtu_ = 0;
   MembershipTimes times_;
   std::optional<Kept> adopted_;
   bool begun_ = false;
   Vantu::IpGenAddr querier_;  // the other one
   uint32_t startupLeft_ = 0;
   Timer next_;   // this router's general query
   Timer other_;  // the other querier is there
};

}
