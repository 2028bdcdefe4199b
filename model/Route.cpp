#include "model/Route.h"

#include "model/Status.h"
#include "platform/trace/Probe.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Route, PIMSM_ROUTE_ATTRIBUTES )

Route::Route( const RouteKey& key, Status* status )
   : Route( key, status, ForCollection() ) {
   if ( status == nullptr ) return;
   stray_ = true;
   status->strays_.add( this );
}

Route::Route( const RouteKey& key, Status* status, ForCollection )
   : key_( key ), pimsmStatus_( status ) {
   handleRouteFlags();
#define PIMSM_RUN_HANDLER( X, name, Name, letter, initial, meaning ) handle##Name();
   PIMSM_EACH_ROUTE_FLAG( PIMSM_RUN_HANDLER, )
#undef PIMSM_RUN_HANDLER
   initFirstInactivityTime();
   handleInitialized();
   MOX_PROBE( route_add, &key_ );
}

Route::~Route() {
   if ( stray_ && pimsmStatus_ != nullptr ) pimsmStatus_->strays_.remove( this );
   for ( Intf* intf : strayIntfs_.members() ) intf->parentRoute_ = nullptr;
   for ( Intf& intf : routeIntf_ ) {
      if ( intf.parentRoute_ == this ) intf.parentRoute_ = nullptr;
   }
   unbindUpstreams();
}

// All records forget the route before any observer is called: it may look at the
// other records, or release them.
void Route::unbindUpstreams() {
   const std::vector<UpstreamInfo*> members = upstreams_.members();
   const std::vector<Mox::Ptr<UpstreamInfo>> bound( members.begin(),
                                                    members.end() );
   for ( const auto& upstream : bound ) upstream->forgetRoute();
   for ( const auto& upstream : bound ) upstream->announceRoute();
}

void Route::handleZeroReferences() {
   umhDel();
   umhFrrDel();
   routeIntfDelAll();
}

void Route::handleInitialized() {
   umhIs()->routeIs( this );
}

void Route::initFirstInactivityTime() {
   firstInactivityTimeIs( std::numeric_limits<double>::infinity() );
}

// Each view's mutator sets its bit of the word in turn; equality ends the
// recursion. The word is read anew for each view: an observer of one view may have
// written another.
void Route::handleRouteFlags() {
#define PIMSM_SET_VIEW( X, name, Name, letter, initial, meaning ) \
   name##Is( routeFlags().name() );
   PIMSM_EACH_ROUTE_FLAG( PIMSM_SET_VIEW, )
#undef PIMSM_SET_VIEW
}

void Route::viewChanged( RouteFlags::Bit bit, bool on ) {
   RouteFlags word = routeFlags();
   word.flagIs( bit, on );
   routeFlagsIs( word );
}

void Route::changeFlagsDoEmbeddedWriteConstraints() {
   notifyObservers<NotifieeConst>(
      []( NotifieeConst& observer ) { observer.onChangeFlags(); } );
}

Mox::Ptr<Intf> Route::routeIntfIs( Vantu::IntfId intfId, Route* parentRoute ) {
   Intf* existing = routeIntf( intfId );
   if ( existing == nullptr ) {
      if ( parentRoute == this ) return routeIntfAdd( newRouteIntf( intfId ) );
      return routeIntfAdd( new Intf( intfId, parentRoute ) );
   }
   if ( existing->parentRoute() == parentRoute ) return existing;
   throw Mox::NameInUseError(
      "Reinstantiating the pointer interface where constructor parameter attribute "
      "_parentRoute has a different value of " +
      Mox::pointerText( parentRoute ) + " than the current value of " +
      Mox::pointerText( existing->parentRoute() ) + " not allowed" );
}

void Route::handleRouteIntfDel( Intf& removed ) {
   if ( removed.stray_ ) return;
   removed.stray_ = true;
   strayIntfs_.add( &removed );
}

Mox::Ptr<Route> routeFactory( const RouteKey& key, Status* status ) {
   return Mox::newEntity<Route>( key, status );
}

Route::IifSwitchState Route::IifSwitchStateInstance( uint32_t number ) {
   return Mox::enumInstance<IifSwitchState>( number );
}
Route::IifSwitchState Route::IifSwitchStateInstance( const Mox::String& name ) {
   return Mox::enumInstance<IifSwitchState>( name );
}

}
