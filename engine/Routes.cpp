#include "engine/Routes.h"

#include <algorithm>

#include "engine/RecordState.h"

namespace Router {

using Routing::Pim::SparseMode::Status;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

void updateTree( Routes::Route& route ) {
   if ( route.wildCard() ) return;
   bool onSourceTree = !route.katExpired() && route.directlyConnected();
   for ( const Routes::Intf& intf : std::as_const( route ).routeIntf() ) {
      if ( onSourceTree ) break;
      onSourceTree =
         intf.localReceiverInclude() || intf.joinState() != Routes::Intf::noInfo;
   }
   Routes::Route::RouteFlags flags = route.routeFlags();
   flags.spTreeIs( onSourceTree );
   flags.rpTreeIs( !onSourceTree );
   route.routeFlagsIs( flags );
}

}

Routes::Routes( Mox::Ptr<Status> model, Mox::Clock& clock, const Topology& topology,
                const GroupPolicy* policy, Changed changed )
   : model_( std::move( model ) ),
     clock_( clock ),
     topology_( topology ),
     policy_( policy ),
     changed_( std::move( changed ) ) {}

Mox::Ptr<Routes::Intf> Routes::find( const RouteKey& key, IntfId intfId ) {
   Route* route = model_->route( key );
   return route == nullptr ? nullptr : route->routeIntf( intfId );
}

std::set<IntfId> Routes::intfs() const {
   std::set<IntfId> intfs;
   for ( const Route& route : model_->route() ) {
      for ( const Intf& intf : route.routeIntf() ) intfs.insert( intf.intfId() );
   }
   return intfs;
}

Mox::Ptr<Routes::Route> Routes::route( const RouteKey& key, const IpGenAddr& rp ) {
   Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr ) return newRoute( key, rp );
   bool learns = key.source.isUnspecified() && !rp.isUnspecified() &&
                 route->umhIs()->rp().isUnspecified();
   if ( learns ) updatePath( *route, rp );
   return route;
}

Mox::Ptr<Routes::Intf> Routes::record( const RouteKey& key, IntfId intfId,
                                       const IpGenAddr& rp ) {
   Mox::Ptr<Intf> intf = route( key, rp )->routeIntfIs( intfId );
   intf->initializedIs( true );
   return intf;
}

Mox::Ptr<Routes::Route> Routes::newRoute( const RouteKey& key,
                                          const IpGenAddr& rp ) {
   Mox::Ptr<Route> route = model_->routeIs( key );
   Route::RouteFlags flags = route->routeFlags();
   flags.wildCardIs( key.source.isUnspecified() );
   flags.rpTreeIs( true );
   route->routeFlagsIs( flags );
   route->creationTimeIs( clock_.now() );
   updatePath( *route, rp.isUnspecified() ? topology_.rpOf( key.group ) : rp );
   route->initializedIs( true );
   return route;
}

void Routes::updatePath( Route& route, const IpGenAddr& rp ) {
   const IpGenAddr& source = route.key().source;
   Topology::Path path = topology_.pathTo( source.isUnspecified() ? rp : source );
   Mox::Ptr<Routing::Pim::SparseMode::UpstreamInfo> umh = route.umhIs();
   umh->rpIs( rp );
   umh->rpfAttachedIs( path.attached );
   umh->doUpdateRpf( path.rpf );
   updateBackup( route, path );
}

void Routes::updateBackup( Route& route, const Topology::Path& path ) {
   const RouteKey key = route.key();
   bool wanted = policy_ != nullptr && path.backup != Routing::Pim::Rpf() &&
                 policy_->frrEnabled( key.source, key.group );
   if ( !wanted ) {
      route.umhFrrDel();
      return;
   }
   Mox::Ptr<Routing::Pim::SparseMode::UpstreamInfo> backup = route.umhFrrIs();
   backup->routeIs( &route );
   backup->frrIs( true );
   route.doUpdateRpfFrr( path.backup, path.backupAttached );
}

void Routes::update( const RouteKey& key, IntfId intfId ) {
   Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr ) return;
   const Intf* intf = route->routeIntf( intfId );
   bool bare = intf != nullptr && !holdsState( *intf ) &&
               !inherits( *intf, std::as_const( *route ).wc() );
   // The last state's end removes the route with its records.
   if ( bare && holdsState( *route ) ) route->routeIntfDel( intfId );
   update( key );
}

void Routes::update( const RouteKey& key ) {
   Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr ) return;
   if ( !holdsState( *route ) ) {
      model_->routeDel( key );
   } else {
      updateTree( *route );
   }
}

// Shared trees come first: they decide which records of the source trees stay.
void Routes::adopt() {
   std::vector<RouteKey> keys = Mox::keysOf( model_->route() );
   std::stable_partition( keys.begin(), keys.end(), []( const RouteKey& key ) {
      return key.source.isUnspecified();
   } );
   for ( const RouteKey& key : keys ) adoptRoute( key );
}

// The configuration may have changed meanwhile. An RP that is not configured came
// with a join; the tables hold only the path to it.
void Routes::adoptRoute( const RouteKey& key ) {
   Mox::Ptr<Route> route = model_->route( key );
   for ( IntfId intfId : Mox::keysOf( route->routeIntf() ) ) update( key, intfId );
   update( key );
   if ( model_->route( key ) == nullptr ) return;
   IpGenAddr rp = topology_.rpOf( key.group );
   if ( !key.source.isUnspecified() || !rp.isUnspecified() )
      updatePath( *route, rp );
}

void Routes::updatePaths() {
   for ( const RouteKey& key : Mox::keysOf( model_->route() ) ) {
      Mox::Ptr<Route> route = model_->route( key );
      bool wildcard = key.source.isUnspecified();
      IpGenAddr rp = topology_.rpOf( key.group );
      if ( rp.isUnspecified() && wildcard ) rp = route->umhIs()->rp();
      // After a restart an RP from a join is unknown: only its path is kept.
      if ( !wildcard || !rp.isUnspecified() ) updatePath( *route, rp );
   }
}

}
