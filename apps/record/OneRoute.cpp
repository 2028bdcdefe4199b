#include "apps/record/OneRoute.h"

#include "export/Conversion.h"

namespace Fleet {

namespace Sm = Routing::Pim::SparseMode;

namespace {

Routing::Pim::RouteKey sharedOf( const Routing::Pim::RouteKey& key ) {
   return { Vantu::IpGenAddr::unspecified( key.group.family() ), key.group };
}

}

OneRoute::OneRoute( Show::Mirror& mirror, Intfs intfs )
   : mirror_( mirror ),
     intfs_( std::move( intfs ) ),
     model_( Sm::statusFactory( mirror.name ) ),
     pim_( std::make_unique<Published::PimMirror>( model_, mirror.agent ) ) {
   model_->initializedIs( true );
   mirror_.model = model_;
}

OneRoute::~OneRoute() {
   mirror_.model = nullptr;
}

OneRoute::Result OneRoute::add( const RouteKey& key ) {
   Sm::Brane::Route record;
   switch ( mirror_.tables->route().find( key, record ) ) {
      case ::Brane::lookupAbsent:
         return absent;
      case ::Brane::lookupFound:
         break;
      default:
         return unreadable;
   }
   const Mox::Ptr<Sm::Route> route = model_->routeIs( key );
   Sm::Brane::doUpdateRoute( *route, record );
   for ( const Vantu::IntfId intfId : intfs_( key ) ) {
      Sm::Brane::Intf intf;
      const auto found = mirror_.tables->routeIntf().find( { key, intfId }, intf );
      if ( found == ::Brane::lookupAbsent ) continue;
      if ( found != ::Brane::lookupFound ) return unreadable;
      Sm::Brane::doUpdateIntf( *route->routeIntfIs( intfId ), intf );
   }
   return loaded;
}

OneRoute::Result OneRoute::load( const RouteKey& key ) {
   model_->routeDel( key_ );
   model_->routeDel( sharedOf( key_ ) );
   key_ = key;
   if ( !key.source.isUnspecified() && add( sharedOf( key ) ) == unreadable )
      return unreadable;
   return add( key );
}

const Show::Route& OneRoute::route() const {
   return *std::as_const( *model_ ).route( key_ );
}

}
