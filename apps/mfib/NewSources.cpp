#include "apps/mfib/NewSources.h"

#include <utility>

namespace Forwarding {

bool NewSources::mayCome( unsigned vif, double now ) {
   constexpr double kInterval = 1.0;
   Came& came = came_.at( vif );
   if ( now >= came.since + kInterval ) came = { now, 0 };
   return came.count++ < rate_;
}

bool NewSources::keep( const RouteKey& key, Packet packet, double now ) {
   if ( bytes_ + packet.size() > maxBytes ) return false;
   bytes_ += packet.size();
   packets_[key].push_back( { now, std::move( packet ) } );
   return true;
}

void NewSources::release(
   double now, const std::function<bool( const RouteKey& )>& decided,
   const std::function<void( const RouteKey&, Packet&, bool )>& take ) {
   for ( auto it = packets_.begin(); it != packets_.end(); ) {
      auto& [key, queue] = *it;
      const bool goes = decided( key );
      while ( !queue.empty() && ( goes || queue.front().time + maxWait <= now ) ) {
         bytes_ -= queue.front().packet.size();
         take( key, queue.front().packet, goes );
         queue.pop_front();
      }
      it = queue.empty() ? packets_.erase( it ) : std::next( it );
   }
}

}
