#include "count/GroupCount.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( GroupCount, PIMSM_GROUP_COUNT_ATTRIBUTES )

MOX_FACTORY( GroupCount,
             []( Mox::StringView name ) { return groupCountFactory( name ); } )

Mox::Ptr<GroupCount> groupCountFactory( Mox::StringView name ) {
   return Mox::newEntity<GroupCount>( name );
}

void GroupCount::groupIs( uint32_t key, const Vantu::IpGenAddr& group ) {
   if ( !groupsBySourceCount_[key].addrIs( group, true ) ) return;
   MOX_NOTIFY_KEY( GroupsBySourceCount );
}

void GroupCount::groupDel( uint32_t key, const Vantu::IpGenAddr& group ) {
   auto [entry, made] = groupsBySourceCount_.try_emplace( key );
   if ( !entry->second.addrDel( group ) && !made ) return;
   MOX_NOTIFY_KEY( GroupsBySourceCount );
}

}
