// A histogram of one VRF's groups: for each number of sources, the groups with that
// many. Kept by SgCountSm; others read. Event-loop thread only.
#pragma once

#include <map>

#include "count/IpAddrCollection.h"
#include "platform/entity/Attribute.h"

namespace Routing::Pim::SparseMode {

using GroupsBySourceCount = std::map<uint32_t, IpAddrCollection>;

// clang-format off
#define PIMSM_GROUP_COUNT_ATTRIBUTES( A ) \
   A( Fixed,    name,                Name,                Mox::String,         , "names the entity" ) \
   A( ValueMap, groupsBySourceCount, GroupsBySourceCount, GroupsBySourceCount, , "groups by their number of sources, ascending" )
// clang-format on

class PIMSM_API GroupCount : public Mox::Entity {
 public:
   MOX_ENTITY( GroupCount, PIMSM_GROUP_COUNT_ATTRIBUTES )

   explicit GroupCount( Mox::StringView name ) : name_( name ) {}

   // As groupsBySourceCountIs() with a changed copy, but the cost does not grow
   // with the entry; see SourceCount::sourceIs().
   void groupIs( uint32_t sourceCount, const Vantu::IpGenAddr& group );
   void groupDel( uint32_t sourceCount, const Vantu::IpGenAddr& group );

   // It is never restored from a backup copy.
   static constexpr bool hasBackupSupport() { return false; }

 protected:
   ~GroupCount() override = default;
};

PIMSM_API Mox::Ptr<GroupCount> groupCountFactory( Mox::StringView name );

}
