#include "export/RouteChangeSet.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode::Brane {

MOX_ENTITY_TYPE( RouteChangeSet, PIMSM_ROUTE_CHANGE_SET_ATTRIBUTES )

MOX_FACTORY( RouteChangeSet,
             []( Mox::StringView ) { return routeChangeSetFactory(); } )

void RouteChangeSet::routeNotify( const RouteKey& key ) {
   MOX_NOTIFY_KEY( Route );
}

void RouteChangeSet::routeIntfNotify( const RouteIntfKey& key ) {
   MOX_NOTIFY_KEY( RouteIntf );
}

Mox::Ptr<RouteChangeSet> routeChangeSetFactory() {
   return Mox::newEntity<RouteChangeSet>();
}

}
