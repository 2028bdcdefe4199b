// The state of one group on one link: the router's side of IGMPv3 and MLDv2 (RFC
// 3376, 6; RFC 3810, 7), with the older versions' hosts (RFC 3376, 7.3.2).
//
//    state           record            new state                     queried as if asked
//    INCLUDE(A)      isIn, allow (B)   INCLUDE(A+B)
//                    isEx (B)          EXCLUDE(A*B, B-A)
//                    block (B)         INCLUDE(A)                    A*B
//                    toEx (B)          EXCLUDE(A*B, B-A)             A*B
//                    toIn (B)          INCLUDE(A+B)                  A-B
//    EXCLUDE(X,Y)    isIn, allow (A)   EXCLUDE(X+A, Y-A)
//                    isEx (A)          EXCLUDE(A-Y, Y*A)
//                    block (A)         EXCLUDE(X+(A-Y), Y)           A-Y
//                    toEx (A)          EXCLUDE(A-Y, Y*A)             A-Y
//                    toIn (A)          EXCLUDE(X+A, Y-A)             X-A, the group
//
// Where a querier would ask, the timers are lowered to the time by which it would have
// an answer: at once by the querier and by a router that only listens, otherwise by the
// querier's message. A source with a running timer is requested; in EXCLUDE mode a
// source without one (Y) is excluded. Times in seconds.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "engine/Timer.h"
#include "packet/Membership.h"

namespace Router {

// RFC 3376, 8; the link's querier may announce others.
struct MembershipTimes {
   double robustness = 2;
   double queryInterval = 125.0;
   double queryResponse = 10.0;
   double lastMemberQuery = 1.0;
   double lastMemberCount = 0;   // 0: the robustness
   bool immediateLeave = false;  // nobody is asked whether the last one left

   double membership() const { return robustness * queryInterval + queryResponse; }
   double queries() const {
      return lastMemberCount != 0 ? lastMemberCount : robustness;
   }
   double lastMember() const {
      return immediateLeave ? 0.0 : queries() * lastMemberQuery;
   }
   double otherQuerier() const {
      return robustness * queryInterval + queryResponse / 2;
   }
};

class PIMSM_API GroupMembership {
 public:
   struct Hooks {
      // Called when a timer has changed the state; may destroy the machine.
      std::function<void()> changed;
      // Does a member that may have left lower timers? Empty: always.
      std::function<bool()> lowers = {};
      // Asks for sources, or with none for the group, after their timers were lowered.
      std::function<void( const std::vector<Vantu::IpGenAddr>& )> ask =
         []( const std::vector<Vantu::IpGenAddr>& ) {};
   };
   // `times` outlives this machine.
   GroupMembership( Mox::Clock& clock, const MembershipTimes& times, Hooks hooks );
   GroupMembership( const GroupMembership& ) = delete;
   GroupMembership& operator=( const GroupMembership& ) = delete;

   // Handles a record of a host of that version. Does not call `changed`.
   void receive( const MembershipRecord& record, uint8_t version );
   // A querier asks for the group, or for some of its sources; answers come within
   // `time`.
   void handleQuery( const std::vector<Vantu::IpGenAddr>& sources, double time );

   // Resumes reloaded members until that time; 0: for a membership time from now on.
   // Excluded sources imply EXCLUDE mode.
   void adoptExclude( double until );
   void adoptSource( const Vantu::IpGenAddr& source, bool requested, double until );
   // Hosts of that version were there: 3 for the present one.
   void adoptVersion( uint8_t version );
   // The version of the oldest host that is there.
   uint8_t oldestVersion() const;

   // Does a host want all sources but the excluded ones?
   bool excludeMode() const { return exclude_; }
   bool has( const Vantu::IpGenAddr& source ) const {
      return sources_.count( source ) != 0;
   }
   size_t size() const { return sources_.size(); }
   // Seconds until the EXCLUDE mode, or the request for the source, ends; 0 without.
   double left() const { return group_.left(); }
   double left( const Vantu::IpGenAddr& source ) const;

   // Each source, with true for requested and false for excluded.
   std::map<Vantu::IpGenAddr, bool> sources() const;

 private:
   using Sources = std::vector<Vantu::IpGenAddr>;

   void request( const Vantu::IpGenAddr& source, double time );
   void lower( const Vantu::IpGenAddr& source, double time );
   void include( const Sources& sources );
   void exclude( const Sources& sources, bool query );
   void blockSources( const Sources& sources );
   void queryAllBut( const Sources& sources );
   void query( const Sources& sources );
   void keepOnly( const Sources& sources );
   void wakeBy( double time );
   void handleSourcesDue();
   void handleGroupExpired();

   Mox::Clock& clock_;
   const MembershipTimes& times_;
   Hooks hooks_;
   bool exclude_ = false;
   Timer group_;  // of the EXCLUDE mode
   // Until when each source is requested; nothing: it is excluded.
   std::map<Vantu::IpGenAddr, std::optional<double>> sources_;
   Timer sourcesDue_;  // runs out with the first source, or before it
   // Until then hosts of version 1 or 2 are present.
   double version1Until_ = 0.0;
   double version2Until_ = 0.0;
};

}
