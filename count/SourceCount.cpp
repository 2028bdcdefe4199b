#include "count/SourceCount.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( SourceCount, PIMSM_SOURCE_COUNT_ATTRIBUTES )

MOX_FACTORY( SourceCount,
             []( Mox::StringView name ) { return sourceCountFactory( name ); } )

Mox::Ptr<SourceCount> sourceCountFactory( Mox::StringView name ) {
   return Mox::newEntity<SourceCount>( name );
}

void SourceCount::sourceIs( uint32_t key, const Vantu::IpGenAddr& source ) {
   if ( !sourcesByGroupCount_[key].addrIs( source, true ) ) return;
   MOX_NOTIFY_KEY( SourcesByGroupCount );
}

void SourceCount::sourceDel( uint32_t key, const Vantu::IpGenAddr& source ) {
   auto [entry, made] = sourcesByGroupCount_.try_emplace( key );
   if ( !entry->second.addrDel( source ) && !made ) return;
   MOX_NOTIFY_KEY( SourcesByGroupCount );
}

}
