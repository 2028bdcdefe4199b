// The access lists of a VRF as its interfaces use them. A setting without a list permits
// everything. Event-loop thread.
#pragma once

#include <unordered_map>

#include "engine/Config.h"

namespace Router {

class PIMSM_API AccessFilter {
 public:
   // Permits everything.
   AccessFilter() = default;
   // The VRF's list of that name; an empty name permits everything. REQUIRES: the VRF
   // has the list.
   AccessFilter( const VrfConfig& vrf, const std::string& list );

   // The first rule that matches decides; what none matches is denied. An unspecified
   // source means all sources of the group: a rule for some of them does not match.
   bool permits( const Vantu::IpGenAddr& source,
                 const Vantu::IpGenAddr& group ) const;
   // As above, of a list that names routers by its rules' sources.
   bool permitsRouter( const Vantu::IpGenAddr& address ) const;

   bool all() const { return !rules_.has_value(); }

 private:
   std::optional<Acl::AclRules> rules_;
};

// The filters of one family.
class PIMSM_API AccessFilters {
 public:
   struct OfLink {
      AccessFilter neighbors;
      AccessFilter joins;
      AccessFilter boundary;
      AccessFilter members;
   };

   AccessFilters( Vantu::AddressFamily family, const VrfConfig& config )
      : family_( family ) {
      configIs( config );
   }

   // Copies what it needs.
   void configIs( const VrfConfig& config );

   const OfLink& of( Vantu::IntfId intfId ) const;
   // Who may register with this router as the RP.
   const AccessFilter& registers() const { return registers_; }
   // The group's SptThreshold::rate.
   double sptThreshold( const Vantu::IpGenAddr& group ) const;
   // Does any group have one that can be reached?
   bool leavesSharedTrees() const;

 private:
   Vantu::AddressFamily family_;
   std::unordered_map<Vantu::IntfId, OfLink> links_;
   AccessFilter registers_;
   struct Threshold {
      AccessFilter groups;
      double rate;
   };
   std::vector<Threshold> thresholds_;
};

}
