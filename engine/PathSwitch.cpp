#include "engine/PathSwitch.h"

#include "engine/Routes.h"

namespace Router {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::Rpf;
using Vantu::IntfId;

PathSwitch::PathSwitch( Mox::Ptr<Sm::Status> model, const Links& links,
                        Mox::Clock& clock, Age age, Ended ended )
   : model_( std::move( model ) ),
     links_( links ),
     clock_( clock ),
     age_( std::move( age ) ),
     ended_( std::move( ended ) ) {}

bool PathSwitch::bringsData( IntfId intfId ) const {
   const Link* link = links_.find( intfId );
   return link != nullptr && link->config().carrier;
}

bool PathSwitch::keepsFormer( const Route& route, const Rpf& next ) const {
   const IntfId former = route.rpf().intfId;
   if ( !age_ || former == next.intfId || route.iifSwitching() ||
        model_->disableMbb() )
      return false;
   if ( !bringsData( former ) || !bringsData( next.intfId ) ) return false;
   const bool comesByIt =
      route.upJoinState() == Sm::upJoined && ( route.wildCard() || route.spTree() );
   return comesByIt && age_( route.key() ) < alive;
}

// A second change, or one back to the former path, ends the switch.
void PathSwitch::changePath( Route& route, const Rpf& next ) {
   if ( route.rpf() == next ) return;
   const bool keeps = keepsFormer( route, next );
   if ( route.iifSwitching() ) end( route );
   route.umhIs()->doUpdateRpf( next );
   if ( keeps ) begin( route );
}

void PathSwitch::begin( Route& route ) {
   route.iifSwitchStateIs( Route::switchIifUpdated );
   route.iifSwitchingIs( true );
   route.beginIifSwitchInc( 1 );
   startTimer( route.key() );
}

void PathSwitch::end( Route& route ) {
   route.iifSwitchingIs( false );
   route.iifSwitchStateIs( Route::notSwitching );
   switches_.erase( route.key() );
}

void PathSwitch::startTimer( const RouteKey& key ) {
   auto over = [this, key] {
      const Mox::Ptr<Route> route = model_->route( key );
      if ( route == nullptr ) {
         switches_.erase( key );
         return;
      }
      end( *route );
      ended_( route->key() );
   };
   switches_.try_emplace( key, clock_, over ).first->second.start( longest );
}

void PathSwitch::handleData( const RouteKey& key, IntfId intfId ) {
   if ( switches_.empty() ) return;
   endAt( key, intfId );
   const Mox::Ptr<const Route> route = std::as_const( *model_ ).route( key );
   if ( route == nullptr || route->comesBySharedTree() )
      endAt( { anySource( key.group ), key.group }, intfId );
}

void PathSwitch::endAt( const RouteKey& key, IntfId intfId ) {
   const Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr || !route->iifSwitching() ||
        route->rpf().intfId != intfId )
      return;
   end( *route );
   ended_( route->key() );
}

// The host's route may have changed first, and the link gone then.
void PathSwitch::handleLinks() {
   for ( auto next = switches_.begin(); next != switches_.end(); ) {
      const Mox::Ptr<Route> route = model_->route( ( next++ )->first );
      if ( route != nullptr && route->iifSwitching() &&
           !bringsData( route->prevRpf().intfId ) )
         end( *route );
   }
}

void PathSwitch::adopt() {
   for ( const Route& route : model_->route() )
      if ( route.iifSwitching() ) startTimer( route.key() );
}

}
