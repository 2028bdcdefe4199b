#include "apps/mirror/Registers.h"

#include <algorithm>
#include <map>

namespace Show {

using Routing::Pim::RouteKey;
using Routing::Pim::SparseMode::AdvertisedSg;

namespace {

template <class Row>
Selected<Row> select( std::vector<Row> rows, const RouteFilter& filter ) {
   Selected<Row> selected;
   selected.all = rows.size();
   std::erase_if( rows,
                  [&]( const Row& row ) { return !filter.matches( row.key ); } );
   std::sort( rows.begin(), rows.end(), []( const Row& a, const Row& b ) {
      return ByGroup()( a.key, b.key );
   } );
   selected.rows = std::move( rows );
   return selected;
}

}

Registers selectRegisters( const Mirror& mirror, const RouteFilter& filter ) {
   std::map<RouteKey, RegisterRow> rows;
   auto mark = [&]( const auto& table, bool RegisterRow::*member ) {
      for ( const RouteKey& key : table.keys() ) {
         rows[key].key = key;
         rows[key].*member = true;
      }
   };
   const auto& tables = *mirror.registers;
   mark( tables.registerOif(), &RegisterRow::registerOif );
   mark( tables.noRegisterOif(), &RegisterRow::noRegisterOif );
   mark( tables.drDiscoveredSg(), &RegisterRow::drDiscovered );
   mark( tables.anycastDiscoveredSg(), &RegisterRow::anycastDiscovered );
   std::vector<RegisterRow> all;
   all.reserve( rows.size() );
   for ( const auto& [key, row] : rows ) all.push_back( row );
   return select( std::move( all ), filter );
}

Advertised selectAdvertised( const Mirror& mirror, const RouteFilter& filter ) {
   std::vector<AdvertisedSg> all;
   mirror.advertised->coll().visit( [&]( const AdvertisedSg& value ) {
      all.push_back( value );
      return true;
   } );
   return select( std::move( all ), filter );
}

}
