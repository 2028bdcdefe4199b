#include "apps/show/reports/InterfaceReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;

namespace {

void add( InterfaceTotals& totals, const Intf& intf ) {
   const Sm::AssertState state = intf.assertInfo().assertState;
   totals.records += 1;
   totals.joins += intf.joinState() != Intf::noInfo ? 1 : 0;
   totals.rptPrunes += intf.prunesSgRpt() ? 1 : 0;
   totals.members += intf.localReceiverInclude() ? 1 : 0;
   totals.assertsWon += state == Sm::iAmAssertWinner ? 1 : 0;
   totals.assertsLost += state == Sm::iAmAssertLoser ? 1 : 0;
   totals.forwarding += intf.forward() ? 1 : 0;
}

std::string addressText( const InterfaceTotals& totals ) {
   if ( !totals.published ) return "unknown";
   if ( totals.published->address.isUnspecified() ) return "none";
   return fmt::format( "{}/{}", Vantu::valueToStrep( totals.published->address ),
                       totals.published->prefixLength );
}

std::string drText( const InterfaceTotals& totals ) {
   if ( !totals.published ) return "unknown";
   return totals.published->iAmDr ? "this" : "another";
}

std::string neighborsText( const InterfaceTotals& totals ) {
   return totals.published ? std::to_string( totals.published->neighbors ) : "-";
}

// The address is the longest column and comes last.
using Row = std::array<std::string, 10>;
Row rowOf( const std::string& name, const InterfaceTotals& totals ) {
   auto count = []( uint32_t number ) { return std::to_string( number ); };
   return { name,
            drText( totals ),
            neighborsText( totals ),
            count( totals.incoming ),
            count( totals.joins ),
            count( totals.members ),
            count( totals.assertsWon ),
            count( totals.assertsLost ),
            count( totals.forwarding ),
            addressText( totals ) };
}

}

Interfaces interfacesOf( const Mirror& mirror, const RouteFilter& filter ) {
   Interfaces interfaces;
   auto of = [&]( Vantu::IntfId intfId ) -> InterfaceTotals& {
      return interfaces[std::string( intfId.name() )];
   };
   mirror.agent->interface().visit( nullptr,
                                    [&]( const Published::Interface& record ) {
                                       of( record.key ).published = record;
                                       return true;
                                    } );
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      const Vantu::IntfId incoming = route->incomingIntf();
      if ( !incoming.empty() ) of( incoming ).incoming += 1;
      for ( const Intf* intf : selectIntfs( *route, filter ) )
         add( of( intf->intfId() ), *intf );
   }
   if ( !filter.iface.empty() ) {
      std::erase_if( interfaces, [&]( const auto& entry ) {
         return entry.first != filter.iface;
      } );
   }
   return interfaces;
}

std::string interfacesText( const Mirror& mirror, const Interfaces& interfaces ) {
   std::string text =
      headingText( mirror, countText( interfaces.size(), "interface" ) );
   if ( interfaces.empty() ) return text;
   std::vector<Row> rows = { { "name", "DR", "nbrs", "in", "join", "memb", "won",
                               "lost", "fwd", "address" } };
   for ( const auto& [name, totals] : interfaces )
      rows.push_back( rowOf( Programs::printable( name ), totals ) );
   std::array<size_t, std::tuple_size_v<Row>> widths{};
   for ( const Row& row : rows ) {
      for ( size_t i = 0; i < row.size(); ++i )
         widths[i] = std::max( widths[i], row[i].size() );
   }
   text += '\n';
   for ( const Row& row : rows ) {
      text +=
         fmt::format( "{:<{}}  {:<{}} ", row[0], widths[0], row[1], widths[1] );
      for ( size_t i = 2; i + 1 < row.size(); ++i )
         text += fmt::format( " {:>{}}", row[i], widths[i] );
      text += "  " + row.back() + '\n';
   }
   return text;
}

Json interfacesJson( const Interfaces& interfaces ) {
   Json list = Json::array();
   for ( const auto& [name, totals] : interfaces ) {
      Json json;
      json["name"] = name;
      if ( totals.published ) {
         json["address"] = Vantu::valueToStrep( totals.published->address );
         json["prefix-length"] = totals.published->prefixLength;
         json["designated-router"] = totals.published->iAmDr;
         json["neighbors"] = totals.published->neighbors;
      }
      json["incoming"] = totals.incoming;
      json["records"] = totals.records;
      json["joins"] = totals.joins;
      json["rpt-prunes"] = totals.rptPrunes;
      json["members"] = totals.members;
      json["asserts-won"] = totals.assertsWon;
      json["asserts-lost"] = totals.assertsLost;
      json["forwarding"] = totals.forwarding;
      list.push_back( std::move( json ) );
   }
   return list;
}

}
