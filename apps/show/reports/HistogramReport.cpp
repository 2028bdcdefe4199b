#include "apps/show/reports/HistogramReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>

#include "apps/show/text/RouteText.h"
#include "apps/show/text/Words.h"
#include "published/Counting.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Vantu::IpGenAddr;

namespace {

constexpr size_t kMaxRows = 16;
constexpr size_t kBarWidth = 40;

// The number of members by count; a row covers the counts up to the next row's.
using Rows = std::map<uint32_t, size_t>;

template <class Histogram>
Rows rowsOf( const Histogram& histogram ) {
   Rows rows;
   for ( const auto& [count, entry] : histogram ) rows[count] = entry.addr().size();
   return rows;
}

// Counts of as many binary digits become one row: 0, 1, 2-3, 4-7.
Rows ranges( const Rows& rows ) {
   Rows joined;
   for ( const auto& [count, members] : rows )
      joined[std::bit_floor( count )] += members;
   return joined;
}

std::string rangeText( uint32_t first ) {
   if ( first < 2 ) return std::to_string( first );
   return fmt::format( "{}-{}", first, first + ( first - 1 ) );
}

// Proportional, but at least one mark for any member.
std::string bar( size_t members, size_t most ) {
   return std::string( std::max<size_t>( 1, members * kBarWidth / most ), '#' );
}

std::string barsText( const char* counted, const char* filed, Rows rows ) {
   const bool inRanges = rows.size() > kMaxRows;
   if ( inRanges ) rows = ranges( rows );
   size_t most = 1;
   for ( const auto& [count, members] : rows ) most = std::max( most, members );
   std::string text = fmt::format( "\n{:>21}  {:>8}\n", counted, filed );
   for ( const auto& [count, members] : rows ) {
      text += fmt::format( "{:>21}  {:>8}  {}\n",
                           inRanges ? rangeText( count ) : std::to_string( count ),
                           members, bar( members, most ) );
   }
   return text;
}

// Null without a (*,G) route.
const Routing::Pim::SparseMode::Source* unspecifiedSource( const Mirror& mirror ) {
   return mirror.model->source( IpGenAddr::unspecified( mirror.family ) );
}

Json histogramJson( const char* counted, const char* filed, const Rows& rows ) {
   Json list = Json::array();
   for ( const auto& [count, members] : rows ) {
      Json row;
      row[counted] = count;
      row[filed] = members;
      list.push_back( std::move( row ) );
   }
   return list;
}

}

std::string histogramText( const Mirror& mirror ) {
   const size_t routes = mirror.model->route().size();
   std::string text = routesHeading( mirror, routes ) +
                      fmt::format( "counted by this reader from {}\n",
                                   countText( routes, "mirrored route" ) );
   if ( routes == 0 ) return text;
   const Published::Counting counting( mirror.model );
   text += barsText( "groups per source", "sources",
                     rowsOf( counting.sources().sourcesByGroupCount() ) );
   if ( const auto* shared = unspecifiedSource( mirror ) ) {
      const size_t groups = shared->sourceGroup().size();
      text += fmt::format( "one of them {}, the source of {}\n",
                           Vantu::valueToStrep( shared->sourceAddr() ),
                           countText( groups, "(*,G) route" ) );
   }
   return text + barsText( "sources per group", "groups",
                           rowsOf( counting.groups().groupsBySourceCount() ) );
}

Json histogramJson( const Mirror& mirror ) {
   const Published::Counting counting( mirror.model );
   Json json;
   json["counted-by"] = "reader";
   json["mirrored-routes"] = mirror.model->route().size();
   json["groups-per-source"] = histogramJson(
      "groups", "sources", rowsOf( counting.sources().sourcesByGroupCount() ) );
   if ( const auto* shared = unspecifiedSource( mirror ) ) {
      json["unspecified-source"]["address"] =
         Vantu::valueToStrep( shared->sourceAddr() );
      json["unspecified-source"]["groups"] = shared->sourceGroup().size();
   }
   json["sources-per-group"] = histogramJson(
      "sources", "groups", rowsOf( counting.groups().groupsBySourceCount() ) );
   return json;
}

}
