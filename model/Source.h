// One multicast source of a VRF and the groups that it sends to.
//
// Owned by Status::source. Event-loop thread only.
#pragma once

#include <map>
#include <unordered_set>

#include "platform/entity/Attribute.h"
#include "platform/net/IpGenAddr.h"
#include "platform/pim/MonitoredNexthop.h"

namespace Routing::Pim::SparseMode {

using SourceGroupMap = std::map<Vantu::IpGenAddr, bool>;
using InjectGroupSet = std::unordered_set<Vantu::IpGenAddr>;

// clang-format off
#define PIMSM_SOURCE_ATTRIBUTES( A ) \
   A( Fixed,    sourceAddr,        SourceAddr,        Vantu::IpGenAddr, , "key" ) \
   A( ValueMap, sourceGroup,       SourceGroup,       SourceGroupMap,   , "groups, ascending, each with a flag" ) \
   A( Set,      sourceInjectGroup, SourceInjectGroup, InjectGroupSet,   , "groups whose traffic is injected" ) \
   A( Value,    monitoredSource,   MonitoredSource,   Arp::MonitoredNexthop::Entry, {}, "the source as a monitored neighbour" )
// clang-format on

class PIMSM_API Source : public Mox::Entity {
 public:
   MOX_ENTITY( Source, PIMSM_SOURCE_ATTRIBUTES )

   explicit Source( const Vantu::IpGenAddr& sourceAddr )
      : sourceAddr_( sourceAddr ) {}
   const Vantu::IpGenAddr& mapKey() const { return sourceAddr_; }

 protected:
   ~Source() override = default;
};

PIMSM_API Mox::Ptr<Source> sourceFactory( const Vantu::IpGenAddr& sourceAddr );

}
