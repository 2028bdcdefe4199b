#include "apps/show/reports/RegisterReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/json/RouteMembers.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
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

template <class Row>
std::string heading( const Mirror& mirror, const Selected<Row>& selected ) {
   std::string count = std::to_string( selected.rows.size() );
   if ( selected.rows.size() != selected.all )
      count += fmt::format( " of {}", selected.all );
   return headingText( mirror, count + " (S,G)" );
}

template <class Row>
size_t keyWidth( const Selected<Row>& selected ) {
   size_t width = 0;
   for ( const Row& row : selected.rows )
      width = std::max( width, keyText( row.key ).size() );
   return width;
}

// Two tables are not read at one moment: a key that moves may appear in both or in
// neither.
const char* registerWord( const RegisterRow& row ) {
   if ( row.registerOif == row.noRegisterOif ) return "changing";
   return row.registerOif ? "registers" : "does not register";
}

std::string originText( const RegisterRow& row ) {
   std::string text = row.drDiscovered ? "first hop" : "";
   if ( row.drDiscovered && row.anycastDiscovered ) text += ", ";
   return text + ( row.anycastDiscovered ? "anycast-RP" : "" );
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
   mirror.advertised->coll().visit( nullptr, [&]( const AdvertisedSg& value ) {
      all.push_back( value );
      return true;
   } );
   return select( std::move( all ), filter );
}

std::string registersText( const Mirror& mirror, const Registers& selected ) {
   std::string text = heading( mirror, selected );
   size_t width = keyWidth( selected );
   for ( const RegisterRow& row : selected.rows ) {
      text +=
         lineText( fmt::format( "{:<{}}  {:<17}  {}", keyText( row.key ), width,
                                registerWord( row ), originText( row ) ) );
   }
   return text;
}

std::string advertisedText( const Mirror& mirror, const Advertised& selected ) {
   std::string text = heading( mirror, selected );
   size_t width = keyWidth( selected ), rpWidth = 0;
   for ( const AdvertisedSg& row : selected.rows )
      rpWidth = std::max( rpWidth, Vantu::valueToStrep( row.rp ).size() );
   for ( const AdvertisedSg& row : selected.rows ) {
      text += lineText(
         fmt::format( "{:<{}}  RP {:<{}}  {}", keyText( row.key ), width,
                      Vantu::valueToStrep( row.rp ), rpWidth,
                      row.anycastDiscovered ? "from an anycast-RP peer" : "" ) );
   }
   return text;
}

Json registersJson( const Registers& selected ) {
   Json list = Json::array();
   for ( const RegisterRow& row : selected.rows ) {
      Json json = keyJson( row.key );
      json["register-oif"] = row.registerOif;
      json["no-register-oif"] = row.noRegisterOif;
      json["dr-discovered"] = row.drDiscovered;
      json["anycast-discovered"] = row.anycastDiscovered;
      list.push_back( std::move( json ) );
   }
   return list;
}

Json advertisedJson( const Advertised& selected ) {
   Json list = Json::array();
   for ( const AdvertisedSg& row : selected.rows ) {
      Json json = keyJson( row.key );
      json["rp-address"] = Vantu::valueToStrep( row.rp );
      json["anycast-discovered"] = row.anycastDiscovered;
      list.push_back( std::move( json ) );
   }
   return list;
}

}
