#include "engine/Advertised.h"

#include <map>

namespace Router {

using Routing::Pim::RouteKey;
using Routing::Pim::SparseMode::AdvertisedSg;
using Routing::Pim::SparseMode::AdvertisedSgStatus;

void publishAdvertised( AdvertisedSgStatus& table, const VrfConfig& config,
                        Vantu::AddressFamily family, RouterCounters& counters ) {
   std::map<RouteKey, AdvertisedSg> wanted;
   for ( const AdvertisedConfig& each : config.advertised ) {
      if ( each.group.family() != family ) continue;
      RouteKey key{ each.source, each.group };
      wanted[key] = { key, each.rp, each.anycast };
   }
   // Removals come first: they make room.
   for ( const RouteKey& key : table.coll().keys() ) {
      if ( wanted.count( key ) == 0 ) table.collDel( key );
   }
   for ( const auto& [key, value] : wanted ) {
      AdvertisedSg standing;
      bool stands = table.coll().find( key, standing ) == ::Brane::lookupFound;
      if ( stands && standing == value ) continue;
      try {
         table.collIs( value );
      } catch ( const ::Brane::NoRoomError& ) {
         counters.refused( tableFull );
      }
   }
}

}
