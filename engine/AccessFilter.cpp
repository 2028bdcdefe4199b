#include "engine/AccessFilter.h"

#include <algorithm>
#include <limits>

#include "platform/base/Assert.h"

namespace Router {

using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

namespace {

bool matches( const IpGenPrefix& prefix, const IpGenAddr& address ) {
   if ( prefix.isNone() || prefix.length() == 0 ) return true;
   return !address.isUnspecified() && prefix.contains( address );
}

// A standard list has its only prefix, the group, in `source`.
bool matches( Acl::AclType type, const Acl::AclRule& rule, const IpGenAddr& source,
              const IpGenAddr& group ) {
   if ( type == Acl::standard ) return matches( rule.source, group );
   return matches( rule.source, source ) && matches( rule.destination, group );
}

const std::string& nameOf( Vantu::AddressFamily family, const FamilyLists& lists ) {
   return family == Vantu::AddressFamily::ipv4 ? lists.ipv4 : lists.ipv6;
}

}

AccessFilter::AccessFilter( const VrfConfig& vrf, const std::string& list ) {
   if ( list.empty() ) return;
   const auto found = std::find_if(
      vrf.accessLists.begin(), vrf.accessLists.end(),
      [&]( const AccessListConfig& each ) { return each.name == list; } );
   MOX_ASSERT( found != vrf.accessLists.end() );
   rules_ = found->rules;
}

bool AccessFilter::permits( const IpGenAddr& source,
                            const IpGenAddr& group ) const {
   if ( all() ) return true;
   for ( const Acl::AclRule& rule : rules_->rules() ) {
      if ( matches( rules_->type(), rule, source, group ) )
         return rule.action == Acl::permit;
   }
   return false;
}

bool AccessFilter::permitsRouter( const IpGenAddr& address ) const {
   return permits( address, IpGenAddr::unspecified( address.family() ) );
}

void AccessFilters::configIs( const VrfConfig& config ) {
   auto filter = [&]( const FamilyLists& lists ) {
      return AccessFilter( config, nameOf( family_, lists ) );
   };
   links_.clear();
   for ( const InterfaceConfig& interface : config.interfaces ) {
      const MembershipConfig& members =
         family_ == Vantu::AddressFamily::ipv4 ? interface.igmp : interface.mld;
      links_[interface.name] = { filter( interface.neighborFilter ),
                                 filter( interface.joinPruneFilter ),
                                 filter( interface.boundary ),
                                 AccessFilter( config, members.accessGroup ) };
   }
   registers_ = filter( config.registerFilter );
   thresholds_.clear();
   for ( const SptThreshold& each : config.sptThresholds )
      thresholds_.push_back( { AccessFilter( config, each.groups ), each.rate } );
}

double AccessFilters::sptThreshold( const IpGenAddr& group ) const {
   for ( const Threshold& each : thresholds_ )
      if ( each.groups.permits( IpGenAddr::unspecified( group.family() ), group ) )
         return each.rate;
   return 0.0;
}

bool AccessFilters::leavesSharedTrees() const {
   if ( thresholds_.empty() || !thresholds_.back().groups.all() ) return true;
   return std::any_of(
      thresholds_.begin(), thresholds_.end(), []( const Threshold& each ) {
         return each.rate < std::numeric_limits<double>::infinity();
      } );
}

const AccessFilters::OfLink& AccessFilters::of( Vantu::IntfId intfId ) const {
   static const OfLink none;
   const auto found = links_.find( intfId );
   return found == links_.end() ? none : found->second;
}

}
