// What the hosts on one link want of one group: the router's side of IGMPv3 and
// MLDv2 (RFC 3376, 6; RFC 3810, 7), with the older versions' hosts (RFC 3376, 7.3.2).
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
// Nothing queries: where a querier would ask again, the timers are lowered to the
// time in which it would have its answer. A source whose timer runs is requested; of
// the EXCLUDE mode one without (Y) is excluded. Times in seconds.
#pragma once

#include <map>
#include <memory>

#include "engine/Timer.h"
#include "packet/Membership.h"

namespace Router {

// RFC 3376, 8; a querier on the link may tell others.
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
   // `times` outlives this. `changed` is called when a timer has changed what is
   // wanted; it may destroy this.
   GroupMembership( Mox::Clock& clock, const MembershipTimes& times,
                    std::function<void()> changed );
   GroupMembership( const GroupMembership& ) = delete;
   GroupMembership& operator=( const GroupMembership& ) = delete;

   // A host of that version says so; `changed` is not called.
   void receive( const MembershipRecord& record, uint8_t version );
   // A querier asks for the group, or for sources of it, within `time`.
   void handleQuery( const std::vector<Vantu::IpGenAddr>& sources, double time );

   // Takes up what a reload left, for a membership time from now on. Only who wants all
   // sources excludes one.
   void adoptExclude();
   void adoptSource( const Vantu::IpGenAddr& source, bool requested );

   // Does some host want all sources but the excluded ones?
   bool excludeMode() const { return exclude_; }
   // Nobody wants anything.
   bool empty() const { return !exclude_ && sources_.empty(); }

   bool has( const Vantu::IpGenAddr& source ) const {
      return sources_.count( source ) != 0;
   }
   size_t size() const { return sources_.size(); }

   // By source: requested, or excluded.
   std::map<Vantu::IpGenAddr, bool> sources() const;

 private:
   using Sources = std::vector<Vantu::IpGenAddr>;

   bool running( const Vantu::IpGenAddr& source ) const;
   bool excluded( const Vantu::IpGenAddr& source ) const;
   void request( const Vantu::IpGenAddr& source, double time );
   void lower( const Vantu::IpGenAddr& source, double time );
   void include( const Sources& sources );
   void exclude( const Sources& sources, bool query );
   void blockSources( const Sources& sources );
   void queryAllBut( const Sources& sources );
   void keepOnly( const Sources& sources );
   void handleSourceExpired( const Vantu::IpGenAddr& source );
   void handleGroupExpired();

   Mox::Clock& clock_;
   const MembershipTimes& times_;
   std::function<void()> changed_;
   bool exclude_ = false;
   Timer group_;  // of the EXCLUDE mode
   // One whose timer does not run is excluded.
   std::map<Vantu::IpGenAddr, std::unique_ptr<Timer>> sources_;
   // While these run, hosts of version 1 or 2 are there.
   Timer version1_;
   Timer version2_;
};

}
