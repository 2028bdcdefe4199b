// Which sources send to each group of one VRF, as a neighbouring library or the
// agent knows it; the (S,G) counting only reads it.
//
// The owner adds a group, then its sources, and removes the sources before the
// group when they are to be counted out. Event-loop thread only.
#pragma once

#include <map>

#include "platform/entity/Attribute.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim::SparseMode {

using GroupSourceFlags = std::map<Vantu::IpGenAddr, bool>;

// clang-format off
#define PIMSM_GROUP_ATTRIBUTES( A ) \
   A( Fixed,    groupAddr,   GroupAddr,   Vantu::IpGenAddr, , "key" ) \
   A( ValueMap, groupSource, GroupSource, GroupSourceFlags, , "sources, ascending, each with a flag" )
// clang-format on

class PIMSM_API Group : public Mox::Entity {
 public:
   MOX_ENTITY( Group, PIMSM_GROUP_ATTRIBUTES )

   explicit Group( const Vantu::IpGenAddr& groupAddr ) : groupAddr_( groupAddr ) {}
   const Vantu::IpGenAddr& mapKey() const { return groupAddr_; }

 protected:
   ~Group() override = default;
};

using GroupMap = Mox::OrderedMap<Vantu::IpGenAddr, Group>;

// clang-format off
#define PIMSM_GROUP_SOURCE_MAP_ATTRIBUTES( A ) \
   A( Map, group, Group, GroupMap, , "groups, ascending by address" )
// clang-format on

class PIMSM_API GroupSourceMap : public Mox::Entity {
 public:
   MOX_ENTITY( GroupSourceMap, PIMSM_GROUP_SOURCE_MAP_ATTRIBUTES )

 protected:
   ~GroupSourceMap() override = default;

 private:
   Mox::Ptr<SparseMode::Group> newGroup( const Vantu::IpGenAddr& address ) {
      return new SparseMode::Group( address );
   }
};

}
