#include "engine/Routes.h"

#include <algorithm>
#include <unordered_set>

#include "engine/RecordState.h"

namespace Router {

using Routing::Pim::SparseMode::Status;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// Where this router only listens, somebody else joins.
bool onOverheardSourceTree( const Routes::Route& route ) {
   for ( const Routes::Intf& intf : route.routeIntf() ) {
      if ( intf.localReceiverInclude() || intf.joinState() != Routes::Intf::noInfo )
         return true;
   }
   return false;
}

// Did this router lose an assert for the source where it expects its data?
bool lostAssert( const Routes::Route& route ) {
   const Routes::Intf* intf = route.routeIntf( route.rpf().intfId );
   return intf != nullptr && intf->assertInfo().assertState ==
                                Routing::Pim::SparseMode::iAmAssertLoser;
}

// Would nobody get data that come by the shared tree? Both trees' interface is none that
// they leave by, though members there may count as this router's: as the link's DR.
bool sharedTreeServesNobody( const Routes::Route& route ) {
   const Vantu::IntfId& incoming = route.rpfWc().intfId;
   if ( route.rpf().intfId != incoming ) return route.nullInheritedOlistSgRpt();
   for ( const Routes::Intf& shared : route.wc()->routeIntf() ) {
      const Routes::Intf* own = route.routeIntf( shared.intfId() );
      const bool serves =
         own == nullptr ? shared.immediateOlistWc() : own->inheritedOlistSgRpt();
      if ( serves && shared.intfId() != incoming ) return false;
   }
   return true;
}

// Update_SPTbit(S,G) of RFC 7761, 4.2.2, for a route that is joined, as far as data
// need not be waited for.
bool comesBySourceTreeAlone( const Routes::Route& route ) {
   if ( route.directlyConnected() || route.wc() == nullptr || lostAssert( route ) )
      return true;
   // At the RP registers bring it, too.
   if ( route.rpfWc().intfId == registerIntf() ) return false;
   return sharedTreeServesNobody( route ) ||
          ( route.nsfRpfResolved() && route.rpf().sameNeighbor( route.rpfWc() ) );
}

// Would data on the source tree's interface show that it comes by that tree?
bool dataWouldTell( const Routes::Route& route ) {
   return route.joinDesiredSg() && route.rpf().intfId != route.rpfWc().intfId;
}

}

Routes::Routes( Mox::Ptr<Status> model, Mox::Clock& clock, const Topology& topology,
                const GroupPolicy* policy, bool joins, Hooks hooks )
   : model_( std::move( model ) ),
     clock_( clock ),
     topology_( topology ),
     policy_( policy ),
     joins_( joins ),
     hooks_( std::move( hooks ) ) {}

Mox::Ptr<Routes::Intf> Routes::find( const RouteKey& key, IntfId intfId ) {
   Route* route = model_->route( key );
   return route == nullptr ? nullptr : route->routeIntf( intfId );
}

std::set<IntfId> Routes::intfs() const {
   std::unordered_set<IntfId> met;
   for ( const Route& route : model_->route() ) {
      for ( const Intf& intf : route.routeIntf() ) met.insert( intf.intfId() );
   }
   return { met.begin(), met.end() };
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

void Routes::tell( Published::EventKind kind, const Route& route,
                   const Routing::Pim::Rpf& former ) const {
   Published::Event event = hooks_.journal.eventOf( kind, route.key() );
   event.intf = route.rpf().intfId;
   event.address = route.rpf().neighbor;
   event.otherIntf = former.intfId;
   event.otherAddress = former.neighbor;
   hooks_.journal.tell( event );
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
   tell( Published::routeCame, *route );
   return route;
}

void Routes::updatePath( Route& route, const IpGenAddr& rp ) {
   const IpGenAddr& source = route.key().source;
   Topology::Path path = topology_.pathTo( source.isUnspecified() ? rp : source );
   Mox::Ptr<Routing::Pim::SparseMode::UpstreamInfo> umh = route.umhIs();
   umh->rpIs( rp );
   umh->rpfAttachedIs( path.attached );
   const Routing::Pim::Rpf former = route.rpf();
   hooks_.changePath( route, hooks_.resolve( route, path ) );
   if ( route.initialized() && route.rpf() != former )
      tell( Published::rpfChanged, route, former );
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
   const bool bare =
      intf != nullptr && isBare( *intf, std::as_const( *route ).wc() );
   if ( bare ) route->routeIntfDel( intfId );
   update( key );
}

void Routes::update( const RouteKey& key ) {
   Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr ) return;
   if ( !holdsState( *route ) ) {
      tell( Published::routeGone, *route );
      model_->routeDel( key );
      untried_.erase( key );
   } else {
      updateTree( *route );
   }
}

void Routes::updateTree( const RouteKey& key ) {
   if ( Mox::Ptr<Route> route = model_->route( key ) ) updateTree( *route );
}

void Routes::updateTree( Route& route ) {
   if ( route.wildCard() ) return;
   const Route& is = route;
   bool onSourceTree = !is.katExpired() && is.directlyConnected();
   bool waits = false;
   if ( !joins_ ) {
      onSourceTree = onSourceTree || onOverheardSourceTree( is );
   } else if ( is.joinDesiredSg() ) {
      const bool brought = is.spTree() && !untried( is.key() );
      onSourceTree = onSourceTree || brought || comesBySourceTreeAlone( is );
      waits = !onSourceTree && dataWouldTell( is );
   }
   if ( !onSourceTree ) {
      untried_.erase( is.key() );
   } else if ( joins_ && !is.spTree() && !is.directlyConnected() &&
               is.nullInheritedOlistSgRpt() ) {
      untried_.emplace( is.key(), clock_.now() );
   }
   if ( is.spTree() != onSourceTree )
      tell( onSourceTree ? Published::onSourceTree : Published::onSharedTree, is );
   Route::RouteFlags flags = route.routeFlags();
   flags.spTreeIs( onSourceTree );
   flags.rpTreeIs( !onSourceTree );
   if ( joins_ ) flags.switchingIs( waits );
   route.routeFlagsIs( flags );
}

bool Routes::handleData( const RouteKey& key, IntfId intfId ) {
   Mox::Ptr<Route> route = model_->route( key );
   const bool tells = joins_ && route != nullptr && !route->wildCard() &&
                      route->rpf().intfId == intfId && dataWouldTell( *route );
   if ( !tells ) return false;
   untried_.erase( key );
   if ( !route->spTree() ) tell( Published::onSourceTree, *route );
   route->spTreeIs( true );
   updateTree( *route );
   return true;
}

bool Routes::handleMore( const RouteKey& key, double age ) {
   const auto found = untried_.find( key );
   if ( found == untried_.end() || clock_.now() - age < found->second + entering )
      return false;
   untried_.erase( found );
   return true;
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
   for ( const RouteKey& key : Mox::keysOf( model_->route() ) ) updatePath( key );
}

void Routes::updatePath( const RouteKey& key ) {
   Mox::Ptr<Route> route = model_->route( key );
   if ( route == nullptr ) return;
   bool wildcard = key.source.isUnspecified();
   IpGenAddr rp = topology_.rpOf( key.group );
   if ( rp.isUnspecified() && wildcard ) rp = route->umhIs()->rp();
   // After a restart an RP from a join is unknown: only its path is kept.
   if ( !wildcard || !rp.isUnspecified() ) updatePath( *route, rp );
}

}
