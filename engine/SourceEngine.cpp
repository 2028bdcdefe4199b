#include "engine/SourceEngine.h"

namespace Router {

SourceEngine::SourceEngine( Routes& routes, Mox::Clock& clock,
                            const Topology& topology, const VrfConfig& config,
                            bool joins, Journal& journal )
   : routes_( routes ),
     clock_( clock ),
     topology_( topology ),
     config_( config ),
     joins_( joins ),
     journal_( journal ) {}

bool SourceEngine::attached( const RouteKey& key ) const {
   return topology_.pathTo( key.source ).attached;
}

bool SourceEngine::accept( const RouteKey& key ) {
   if ( !journal_.accepted( refusalOfRoute( key.source, key.group ), key ) )
      return false;
   if ( routes_.hasRoom( key ) ) return true;
   journal_.refused( tableFull, key );
   return false;
}

void SourceEngine::wake( const RouteKey& key ) {
   const Mox::Ptr<Routes::Route> route = routes_.route( key );
   if ( route->katExpired() ) journal_.tell( Published::sourceCame, key );
   route->katExpiredIs( false );
}

void SourceEngine::receiveData( const RouteKey& key, Vantu::IntfId intfId,
                                double age ) {
   const double left = config_.keepalivePeriod - age;
   if ( !( left > 0.0 ) || !accept( key ) ) return;
   const Topology::Path path = topology_.pathTo( key.source );
   if ( !path.attached || path.rpf.intfId != intfId ) return;
   wake( key );
   routes_.update( key );
   start( key, left, true );
}

bool SourceEngine::keepAlive( const RouteKey& key, double seconds ) {
   if ( !accept( key ) ) return false;
   wake( key );
   start( key, seconds, false );
   routes_.update( key );
   return true;
}

// The kernel passes no packet up for a route that a join made before the source
// sent. Its packet count shows that the source sends.
void SourceEngine::receiveMore( const RouteKey& key, double age ) {
   const double left = config_.keepalivePeriod - age;
   auto found = sources_.find( key );
   if ( found != sources_.end() ) return found->second.keepalive.extend( left );
   Mox::Ptr<Routes::Route> route = routes_.find( key );
   if ( !( left > 0.0 ) || route == nullptr || route->wildCard() ) return;
   const Topology::Path path = topology_.pathTo( key.source );
   const bool onLink = path.attached && path.rpf.intfId == route->incomingIntf();
   const bool joined = joins_ && route->spTree() && route->joinDesiredSg();
   if ( !onLink && !joined ) return;
   wake( key );
   routes_.update( key );
   start( key, left, onLink );
}

void SourceEngine::start( const RouteKey& key, double seconds, bool onLink ) {
   auto over = [this, key] { end( key ); };
   Source& source = sources_.try_emplace( key, clock_, over, onLink ).first->second;
   source.onLink |= onLink;
   source.keepalive.extend( seconds );
}

void SourceEngine::end( const RouteKey& key ) {
   if ( Mox::Ptr<Routes::Route> route = routes_.find( key ) ) {
      if ( !route->katExpired() ) journal_.tell( Published::sourceGone, key );
      route->katExpiredIs( true );
      routes_.update( key );
   }
   sources_.erase( RouteKey( key ) );
}

void SourceEngine::adopt() {
   for ( const auto& route : routes_.model().route() ) {
      if ( route.katExpired() ) continue;
      const RouteKey& key = route.key();
      start( key, config_.keepalivePeriod, !joins_ || attached( key ) );
   }
   updatePaths();
}

void SourceEngine::updatePaths() {
   std::vector<RouteKey> gone;
   for ( const auto& [key, source] : sources_ ) {
      if ( source.onLink && !attached( key ) ) gone.push_back( key );
   }
   for ( const RouteKey& key : gone ) end( key );
}

}
