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
// This router sends no queries: where a querier would ask, the timers are lowered
// to the time by which it would have an answer. A source with a running timer is
// requested; in EXCLUDE mode a source without one (Y) is excluded. A source's timer
// is a number; one clock observer wakes for all of them. Times in seconds.
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

   double membership() const { return robustness * queryInterval + queryResponse; }
   double lastMember() const { return robustness * lastMemberQuery; }
};

class PIMSM_API GroupMembership {
 public:
   // `times` outlives this machine. `changed` is called when a timer has changed
   // the state; it may destroy the machine.
   GroupMembership( Mox::Clock& clock, const MembershipTimes& times,
                    std::function<void()> changed );
   GroupMembership( const GroupMembership& ) = delete;
   GroupMembership& operator=( const GroupMembership& ) = delete;

   // Handles a record of a host of that version. Does not call `changed`.
   void receive( const MembershipRecord& record, uint8_t version );
   // A querier asks for the group, or for some of its sources; answers come within
   // `time`.
   void handleQuery( const std::vector<Vantu::IpGenAddr>& sources, double time );

   // Resumes reloaded members for a membership time from now on. Excluded sources
   // imply EXCLUDE mode.
   void adoptExclude();
   void adoptSource( const Vantu::IpGenAddr& source, bool requested );

   // Does a host want all sources but the excluded ones?
   bool excludeMode() const { return exclude_; }
   // True when no host wants the group or a source of it.
   bool empty() const { return !exclude_ && sources_.empty(); }

   bool has( const Vantu::IpGenAddr& source ) const {
      return sources_.count( source ) != 0;
   }
   size_t size() const { return sources_.size(); }

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
   void keepOnly( const Sources& sources );
   void wakeBy( double time );
   void handleSourcesDue();
   void handleGroupExpired();

   Mox::Clock& clock_;
   const MembershipTimes& times_;
   std::function<void()> changed_;
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
