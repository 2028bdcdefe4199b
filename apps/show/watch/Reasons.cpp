#include "apps/show/watch/Reasons.h"

namespace Show {

void Reasons::take( double now ) {
   for ( Logged& logged : events_.take() ) {
      const Published::Event& event = logged.event;
      if ( !event.group.isMulticast() || !isReason( event.kind ) ) continue;
      const bool ofRoute = event.kind == Published::routeCame ||
                           event.kind == Published::routeGone ||
                           event.kind == Published::rpfChanged ||
                           event.kind == Published::onSourceTree ||
                           event.kind == Published::onSharedTree;
      newest_.insert_or_assign( { event.vrf.text(),
                                  { event.source, event.group },
                                  ofRoute ? Vantu::IntfId() : event.intf },
                                std::move( logged ) );
   }
   if ( now < pruned_ + lifetime ) return;
   pruned_ = now;
   std::erase_if( newest_, [now]( const auto& each ) {
      return each.second.last < now - lifetime;
   } );
}

const Logged* Reasons::of( const Mirror& mirror,
                           const Routing::Pim::RouteKey& route,
                           Vantu::IntfId intfId, double now ) {
   take( now );
   const Routing::Pim::RouteKey shared{
      Vantu::IpGenAddr::unspecified( mirror.family ), route.group };
   // An (S,G) may follow its group's (*,G).
   for ( const auto& key : { route, shared } ) {
      const auto found = newest_.find( { mirror.vrf(), key, intfId } );
      if ( found != newest_.end() && found->second.last >= now - lifetime )
         return &found->second;
   }
   return nullptr;
}

}
