#include "apps/show/InterfaceReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/published/Incoming.h"
#include "apps/show/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;

namespace {

void add( InterfaceTotals& totals, const Intf& intf ) {
   const Sm::AssertState state = intf.assertInfo().assertState;
   totals.records += 1;
   totals.joins += intf.joinState() != Intf::noInfo ? 1 : 0;
   totals.rptPrunes += intf.rptState() != Intf::rptNoInfo ? 1 : 0;
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
      const Vantu::IntfId incoming = Published::incomingIntf( *route );
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
      fmt::format( "vrf {} {}: {} interface{}, agent {}\n", mirror.vrf(),
                   familyName( mirror.family ), interfaces.size(),
                   interfaces.size() == 1 ? "" : "s",
                   mirror.writerAlive() ? "running" : "gone" );
   if ( interfaces.empty() ) return text;
   size_t name = 4, address = 7;
   for ( const auto& [each, totals] : interfaces ) {
      name = std::max( name, each.size() );
      address = std::max( address, addressText( totals ).size() );
   }
   auto row = [&]( const auto& first, const auto& second, const auto& dr,
                   const auto& neighbors, const auto&... counts ) {
      text += fmt::format( "{:<{}}  {:<{}}  {:<7} {:>4}", first, name, second,
                           address, dr, neighbors );
      ( ( text += fmt::format( " {:>5}", counts ) ), ... );
      text += '\n';
   };
   text += '\n';
   row( "name", "address", "DR", "nbrs", "in", "join", "memb", "won", "lost",
        "fwd" );
   for ( const auto& [each, totals] : interfaces )
      row( each, addressText( totals ), drText( totals ), neighborsText( totals ),
           totals.incoming, totals.joins, totals.members, totals.assertsWon,
           totals.assertsLost, totals.forwarding );
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
