#include "model/Intf.h"

#include "model/Route.h"

namespace Routing::Pim::SparseMode {

static_assert( sizeof( Intf ) <= 144, "a router holds 600,000 of them" );

MOX_ENTITY_TYPE( Intf, PIMSM_INTF_ATTRIBUTES )

Intf::Intf( Vantu::IntfId intfId, Route* parentRoute )
   : Intf( intfId, parentRoute, ForCollection() ) {
   stray_ = true;
   if ( parentRoute != nullptr ) parentRoute->strayIntfs_.add( this );
}

Mox::Ptr<Intf> intfFactory( Vantu::IntfId intfId, Route* parentRoute ) {
   return Mox::newEntity<Intf>( intfId, parentRoute );
}

Intf::~Intf() {
   if ( stray_ && parentRoute_ != nullptr )
      parentRoute_->strayIntfs_.remove( this );
}

void Intf::changeFlagsDoEmbeddedWriteConstraints() {
   notifyObservers<NotifieeConst>(
      []( NotifieeConst& observer ) { observer.onChangeFlags(); } );
}

Intf::JoinState Intf::JoinStateInstance( uint32_t number ) {
   return Mox::enumInstance<JoinState>( number );
}
Intf::JoinState Intf::JoinStateInstance( const Mox::String& name ) {
   return Mox::enumInstance<JoinState>( name );
}
Intf::RptState Intf::RptStateInstance( uint32_t number ) {
   return Mox::enumInstance<RptState>( number );
}
Intf::RptState Intf::RptStateInstance( const Mox::String& name ) {
   return Mox::enumInstance<RptState>( name );
}

}
