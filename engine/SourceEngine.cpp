#include "engine/SourceEngine.h"

namespace Router {

SourceEngine::SourceEngine( Routes& routes, Mox::Clock& clock,
                            const Topology& topology, RouterCounters& counters )
   : routes_( routes ),
     clock_( clock ),
     topology_( topology ),
     counters_( counters ) {}

bool SourceEngine::attached( const RouteKey& key ) const {
   return topology_.pathTo( key.source ).attached;
}

bool SourceEngine::accept( const RouteKey& key ) {
   if ( !counters_.accepted( refusalOfRoute( key.source, key.group ) ) )
      return false;
   if ( routes_.hasRoom( key ) ) return true;
   counters_.refused( tableFull );
   return false;
}

void SourceEngine::receiveData( const RouteKey& key, Vantu::IntfId intfId,
                                double age ) {
   const double left = keepalivePeriod - age;
   if ( !( left > 0.0 ) || !accept( key ) ) return;
   const Topology::Path path = topology_.pathTo( key.source );
   if ( !path.attached || path.rpf.intfId != intfId ) return;
   routes_.route( key )->katExpiredIs( false );
   routes_.update( key );
   start( key, left );
}

// The kernel passes no packet up for a route that a join made before the source
// sent. Its packet count shows that the source sends.
void SourceEngine::receiveMore( const RouteKey& key, double age ) {
   const double left = keepalivePeriod - age;
   auto found = keepalive_.find( key );
   if ( found != keepalive_.end() ) {
      found->second->extend( left );
      return;
   }
   Mox::Ptr<Routes::Route> route = routes_.find( key );
   if ( !( left > 0.0 ) || route == nullptr || route->wildCard() ) return;
   const Topology::Path path = topology_.pathTo( key.source );
   if ( !path.attached || path.rpf.intfId != route->incomingIntf() ) return;
   route->katExpiredIs( false );
   routes_.update( key );
   start( key, left );
}

void SourceEngine::start( const RouteKey& key, double seconds ) {
   std::unique_ptr<Timer>& timer = keepalive_[key];
   if ( timer == nullptr )
      timer = std::make_unique<Timer>( clock_, [this, key] { end( key ); } );
   timer->extend( seconds );
}

void SourceEngine::end( const RouteKey& key ) {
   if ( Mox::Ptr<Routes::Route> route = routes_.find( key ) ) {
      route->katExpiredIs( true );
      routes_.update( key );
   }
   keepalive_.erase( key );
}

void SourceEngine::adopt() {
   for ( const auto& route : routes_.model().route() ) {
      if ( !route.katExpired() ) start( route.key(), keepalivePeriod );
   }
   updatePaths();
}

void SourceEngine::updatePaths() {
   std::vector<RouteKey> gone;
   for ( const auto& [key, timer] : keepalive_ ) {
      if ( !attached( key ) ) gone.push_back( key );
   }
   for ( const RouteKey& key : gone ) end( key );
}

}
