#include "apps/mirror/RouteFilter.h"

#include <algorithm>

namespace Show {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

bool RouteFilter::active() const {
   return group || source || !iface.empty() || !iif.empty() || !kind.empty() ||
          forwarding;
}

bool RouteFilter::matches( const Routing::Pim::RouteKey& key ) const {
   bool wildcard = key.source.isUnspecified();
   if ( group && !group->contains( key.group ) ) return false;
   return !source || ( !wildcard && source->contains( key.source ) );
}

bool RouteFilter::matches( const Route& route ) const {
   const Routing::Pim::RouteKey& key = route.key();
   bool wildcard = key.source.isUnspecified();
   if ( kind == "wc" && !wildcard ) return false;
   if ( kind == "sg" && wildcard ) return false;
   if ( !matches( key ) ) return false;
   if ( !iif.empty() && route.incomingIntf().name() != iif ) return false;
   if ( iface.empty() && !forwarding ) return true;
   return std::any_of( route.routeIntf().begin(), route.routeIntf().end(),
                       [this]( const Intf& intf ) { return matches( intf ); } );
}

bool RouteFilter::matches( const Intf& intf ) const {
   if ( forwarding && intf.forward() != *forwarding ) return false;
   return matches( intf.intfId() );
}

Vantu::IpGenPrefix prefixArgument( const std::string& text ) {
   if ( text.find( '/' ) != std::string::npos ) {
      return Mox::stringToValue<Vantu::IpGenPrefix>( text );
   }
   Vantu::IpGenAddr address( text );
   return { address, Vantu::addressBits( address.family() ) };
}

std::vector<const Route*> selectRoutes( const Mirror& mirror,
                                        const RouteFilter& filter ) {
   std::vector<const Route*> routes;
   for ( const Route& route : std::as_const( *mirror.model ).route() ) {
      if ( filter.matches( route ) ) routes.push_back( &route );
   }
   std::sort( routes.begin(), routes.end(), []( const Route* a, const Route* b ) {
      return ByGroup()( a->key(), b->key() );
   } );
   return routes;
}

std::vector<const Intf*> selectIntfs( const Route& route,
                                      const RouteFilter& filter ) {
   std::vector<const Intf*> intfs;
   for ( const Intf& intf : route.routeIntf() ) {
      if ( filter.matches( intf ) ) intfs.push_back( &intf );
   }
   std::sort( intfs.begin(), intfs.end(), []( const Intf* a, const Intf* b ) {
      return a->intfId() < b->intfId();
   } );
   return intfs;
}

}
