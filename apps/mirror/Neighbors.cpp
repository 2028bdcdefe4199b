#include "apps/mirror/Neighbors.h"

#include <algorithm>
#include <map>

#include "apps/mirror/AgentTables.h"

namespace Show {

using Published::Neighbor;
using Published::NeighborKey;

namespace {

std::optional<bool> isDr( const Mirror& mirror, const NeighborKey& key ) {
   Published::Interface intf;
   if ( mirror.agent->interface().find( key.intfId, intf ) != Brane::lookupFound ||
        intf.dr.isUnspecified() )
      return std::nullopt;
   return intf.dr == key.address;
}

}

Neighbors selectNeighbors( const Mirror& mirror, const RouteFilter& filter ) {
   std::map<NeighborKey, NeighborRow> rows;
   Neighbors selected;
   selected.known = isReady( mirror.agent->neighbor() );
   mirror.agent->neighbor().visit( [&]( const Neighbor& record ) {
      ++selected.all;
      if ( filter.matches( record.key.intfId ) )
         rows[record.key] = { record, isDr( mirror, record.key ), {} };
      return true;
   } );
   for ( const auto& key : mirror.agent->neighborAddress().keys() ) {
      auto found = rows.find( { key.intfId, key.neighbor, 0 } );
      if ( found != rows.end() ) found->second.addresses.push_back( key.address );
   }
   for ( auto& [key, row] : rows ) {
      std::sort( row.addresses.begin(), row.addresses.end() );
      selected.rows.push_back( std::move( row ) );
   }
   return selected;
}

}
