// A histogram of one VRF's sources: for each number of groups, the sources with
// that many. Kept by SgCountSm; others read. Event-loop thread only.
#pragma once

#include <map>

#include "count/IpAddrCollection.h"
#include "platform/entity/Attribute.h"

namespace Routing::Pim::SparseMode {

using SourcesByGroupCount = std::map<uint32_t, IpAddrCollection>;

// clang-format off
#define PIMSM_SOURCE_COUNT_ATTRIBUTES( A ) \
   A( Fixed,    name,                Name,                Mox::String,         , "names the entity" ) \
   A( ValueMap, sourcesByGroupCount, SourcesByGroupCount, SourcesByGroupCount, , "sources by their number of groups, ascending" )
// clang-format on

class PIMSM_API SourceCount : public Mox::Entity {
 public:
   MOX_ENTITY( SourceCount, PIMSM_SOURCE_COUNT_ATTRIBUTES )

   explicit SourceCount( Mox::StringView name ) : name_( name ) {}

   // Store and notify exactly as sourcesByGroupCountIs() does for a copy of the
   // entry, empty if absent, with the source added or removed. But nothing is
   // copied, so that the cost does not grow with the entry. An entry stays when its
   // last source leaves it; a removal from an absent entry makes it.
   void sourceIs( uint32_t groupCount, const Vantu::IpGenAddr& source );
   void sourceDel( uint32_t groupCount, const Vantu::IpGenAddr& source );

   // It is never restored from a backup copy.
   static constexpr bool hasBackupSupport() { return false; }

 protected:
   ~SourceCount() override = default;
};

PIMSM_API Mox::Ptr<SourceCount> sourceCountFactory( Mox::StringView name );

}
