#include "apps/show/reports/InterfaceReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/json/LinkJson.h"
#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
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

bool isDown( const InterfaceTotals& totals ) {
   return totals.published && totals.published->link == Published::linkDown;
}

std::string drText( const InterfaceTotals& totals ) {
   if ( !totals.published ) return "unknown";
   if ( isDown( totals ) ) return "none";
   const auto& dr = totals.published->dr;
   if ( totals.published->iAmDr ) return "this";
   return dr.isUnspecified() ? "another" : Vantu::valueToStrep( dr );
}

std::string neighborsText( const InterfaceTotals& totals ) {
   if ( !totals.published || isDown( totals ) ) return "-";
   return std::to_string( totals.published->neighbors );
}

std::string stateText( const InterfaceTotals& totals ) {
   constexpr const char* kWords[] = { "unknown", "up", "down", "no carrier" };
   return kWords[totals.published ? totals.published->link
                                  : Published::linkUnknown];
}

// The address is the longest column and comes last.
std::vector<std::string> rowOf( const std::string& name,
                                const InterfaceTotals& totals ) {
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
            stateText( totals ),
            addressText( totals ) };
}

// "hello 12, join-prune 3"
std::string messagesText( const Messages& messages ) {
   std::string text;
   for ( const auto& [type, count] : messages )
      text += fmt::format( "{}{} {}", text.empty() ? "" : ", ", type, count );
   return text;
}

void noteDetails( TextTable& table, const InterfaceTotals& totals, double now ) {
   const auto note = [&]( const char* name, const std::string& value ) {
      table.note( fmt::format( "    {:<15} {}", name, value ) );
   };
   if ( totals.published && !isDown( totals ) ) {
      const Published::Interface& intf = *totals.published;
      note( "querier", querierText( intf, now ) );
      if ( intf.speaks ) {
         note( "generation id", generationText( intf.generationId ) );
         note( "next hello", "in " + spanText( intf.nextHello - now ) );
      }
   }
   // The counters are those of both families.
   if ( !totals.sent.empty() ) note( "sent", messagesText( totals.sent ) );
   if ( !totals.received.empty() )
      note( "received", messagesText( totals.received ) );
   if ( !totals.refused.empty() ) note( "refused", messagesText( totals.refused ) );
}

// The agent's counters of a VRF's interfaces, by interface.
void addMessages( Interfaces& interfaces, const Mirror& mirror,
                  const Published::ProcessStatus& process ) {
   if ( !isReady( process.counter() ) ) return;
   const auto add = [&]( const Published::Counter& counter, const char* prefix,
                         Messages InterfaceTotals::*messages ) {
      const std::string start = prefix + mirror.vrf() + '/';
      const std::string owner = counter.key.owner.text();
      if ( owner.rfind( start, 0 ) != 0 || counter.value == 0 ) return;
      auto found = interfaces.find( owner.substr( start.size() ) );
      if ( found != interfaces.end() )
         ( found->second.*messages )[yangName( counter.key.name.text() )] =
            counter.value;
   };
   process.counter().visit( [&]( const Published::Counter& counter ) {
      add( counter, "agent/sent/", &InterfaceTotals::sent );
      add( counter, "agent/received/", &InterfaceTotals::received );
      add( counter, "agent/refused/", &InterfaceTotals::refused );
      return true;
   } );
}

void addMessages( Json& json, const char* name, const Messages& messages,
                  const char* key = "type" ) {
   for ( const auto& [type, count] : messages )
      json[name].push_back(
         { { key, type }, { "count", std::to_string( count ) } } );
}

}

std::string querierText( const Published::Interface& intf, double now ) {
   if ( intf.querier.isUnspecified() ) return "unknown";
   const std::string address = Vantu::valueToStrep( intf.querier );
   if ( intf.otherQuerierUntil == 0.0 ) return address + ", this router";
   return fmt::format( "{}, for {}", address,
                       spanText( intf.otherQuerierUntil - now ) );
}

Interfaces interfacesOf( const Mirror& mirror, const RouteFilter& filter,
                         const Published::ProcessStatus& process ) {
   Interfaces interfaces;
   auto of = [&]( Vantu::IntfId intfId ) -> InterfaceTotals& {
      return interfaces[std::string( intfId.name() )];
   };
   mirror.agent->interface().visit( [&]( const Published::Interface& record ) {
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
   addMessages( interfaces, mirror, process );
   return interfaces;
}

std::string interfacesHeading( const Mirror& mirror,
                               const Interfaces& interfaces ) {
   return headingText( mirror, countText( interfaces.size(), "interface" ) );
}

std::string interfacesText( const Mirror& mirror, const Interfaces& interfaces,
                            bool detail, double now ) {
   const std::string heading = interfacesHeading( mirror, interfaces );
   TextTable table( { { "name" },
                      { "DR" },
                      { "nbrs", true },
                      { "in", true },
                      { "join", true },
                      { "memb", true },
                      { "won", true },
                      { "lost", true },
                      { "fwd", true },
                      { "state" },
                      { "address" } } );
   for ( const auto& [name, totals] : interfaces ) {
      table.add( rowOf( Programs::printable( name ), totals ) );
      if ( detail ) noteDetails( table, totals, now );
   }
   return table.empty() ? heading : heading + '\n' + table.text();
}

Json interfacesJson( const Interfaces& interfaces, double now ) {
   Json list = Json::array();
   for ( const auto& [name, totals] : interfaces ) {
      Json json;
      json["name"] = name;
      if ( totals.published ) {
         addInterface( json, *totals.published );
         if ( totals.published->speaks && !isDown( totals ) )
            json["hello-expiration"] =
               expirationJson( totals.published->nextHello - now );
      }
      json["incoming"] = totals.incoming;
      json["records"] = totals.records;
      json["joins"] = totals.joins;
      json["rpt-prunes"] = totals.rptPrunes;
      json["members"] = totals.members;
      json["asserts-won"] = totals.assertsWon;
      json["asserts-lost"] = totals.assertsLost;
      json["forwarding"] = totals.forwarding;
      addMessages( json, "sent", totals.sent );
      addMessages( json, "received", totals.received );
      addMessages( json, "refused", totals.refused, "reason" );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
