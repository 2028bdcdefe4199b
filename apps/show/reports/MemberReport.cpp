#include "apps/show/reports/MemberReport.h"

#include <fmt/format.h>

#include <set>

#include "apps/json/YangData.h"
#include "apps/program/Printable.h"
#include "apps/show/text/TextTable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

using Rows = std::map<std::pair<std::string, Vantu::IpGenAddr>, MemberRow>;

void addTimes( const Mirror& mirror, const Route& route, const Intf& intf,
               MemberRow& row, double& until ) {
   Published::Downstream timers;
   const Routing::Pim::RouteIntfKey key{ route.key(), intf.intfId() };
   if ( mirror.agent->downstream().find( key, timers ) != Brane::lookupFound )
      return;
   until = timers.memberUntil;
   if ( timers.memberVersion != 0 ) row.version = timers.memberVersion;
}

void add( const Mirror& mirror, const Route& route, const Intf& intf, Rows& rows ) {
   const std::string name( intf.intfId().name() );
   const auto [at, isNew] = rows.try_emplace( { name, route.key().group } );
   MemberRow& row = at->second;
   if ( isNew ) {
      row.interface = name;
      row.group = route.key().group;
      Published::Interface record;
      if ( mirror.agent->interface().find( intf.intfId(), record ) ==
           Brane::lookupFound )
         row.published = record;
   }
   if ( route.wildCard() ) {
      row.any = true;
      return addTimes( mirror, route, intf, row, row.until );
   }
   MemberRow::Source& source = row.sources[route.key().source];
   source.excluded = intf.localReceiverExclude();
   row.any = row.any || source.excluded;
   addTimes( mirror, route, intf, row, source.until );
}

bool hasMembers( const Intf& intf ) {
   return intf.localReceiverInclude() || intf.localReceiverExclude();
}

// "IGMPv2", "MLDv1": the tables count MLD as its IGMP counterpart.
std::string versionText( const Mirror& mirror, uint32_t version ) {
   if ( version == 0 ) return "";
   return mirror.family == Vantu::AddressFamily::ipv4
             ? fmt::format( "IGMPv{}", version )
             : fmt::format( "MLDv{}", version - 1 );
}

std::string askedText( double until, double now ) {
   return until == 0.0 ? ""
                       : fmt::format( "asked, {} left", spanText( until - now ) );
}

// "all", "all but 192.0.2.1", "192.0.2.1, 192.0.2.2 (asked, 1s left)"
std::string sourcesText( const MemberRow& row, double now ) {
   std::string text;
   for ( const auto& [address, source] : row.sources ) {
      if ( row.any != source.excluded ) continue;
      text += ( text.empty() ? "" : ", " ) + Vantu::valueToStrep( address );
      if ( source.until != 0.0 )
         text += fmt::format( " ({})", askedText( source.until, now ) );
   }
   if ( !row.any ) return text;
   return text.empty() ? "all" : "all but " + text;
}

std::string querierText( const MemberRow& row ) {
   if ( !row.published || row.published->querier.isUnspecified() ) return "unknown";
   return row.published->otherQuerierUntil == 0.0
             ? "this"
             : Vantu::valueToStrep( row.published->querier );
}

Json sourcesJson( const MemberRow& row, double now ) {
   Json list = Json::array();
   for ( const auto& [address, source] : row.sources ) {
      Json json;
      json["source-address"] = Vantu::valueToStrep( address );
      json["excluded"] = source.excluded;
      if ( source.until != 0.0 )
         json["expiration"] = expirationJson( source.until - now );
      list.push_back( std::move( json ) );
   }
   return list;
}

}

namespace {

// The host whose report came first of those that still stand.
void addReporters( const Mirror& mirror, const std::vector<Logged>& log,
                   Rows& rows ) {
   std::map<std::pair<std::string, Vantu::IpGenAddr>, std::set<Vantu::IpGenAddr>>
      standing;  // sources
   const uint32_t version = mirror.family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   for ( const Logged& logged : log ) {
      const Published::Event& event = logged.event;
      const bool came = event.kind == Published::memberCame;
      if ( ( !came && event.kind != Published::memberGone ) ||
           event.ipVersion != version || event.vrf.text() != mirror.vrf() )
         continue;
      const std::pair of( std::string( event.intf.name() ), event.group );
      std::set<Vantu::IpGenAddr>& sources = standing[of];
      const auto found = rows.find( of );
      if ( came && sources.empty() && found != rows.end() )
         found->second.reporter = event.address;
      if ( came )
         sources.insert( event.source );
      else
         sources.erase( event.source );
   }
}

}

Members selectMembers( const Mirror& mirror, const RouteFilter& filter,
                       const std::vector<Logged>& log ) {
   Rows rows;
   Members selected;
   std::set<std::pair<Vantu::IntfId, Vantu::IpGenAddr>> all;
   for ( const Route* route : selectRoutes( mirror, {} ) ) {
      for ( const Intf& intf : route->routeIntf() ) {
         if ( !hasMembers( intf ) ) continue;
         all.emplace( intf.intfId(), route->key().group );
         if ( filter.matches( route->key() ) && filter.matches( intf ) )
            add( mirror, *route, intf, rows );
      }
   }
   selected.all = all.size();
   addReporters( mirror, log, rows );
   for ( auto& [key, row] : rows ) selected.rows.push_back( std::move( row ) );
   return selected;
}

std::string membersText( const Mirror& mirror, const Members& selected,
                         double now ) {
   TextTable table( { { "interface" },
                      { "group" },
                      { "mode" },
                      { "querier" },
                      { "hosts" },
                      { "first" },
                      { "leaving" },
                      { "sources" } } );
   for ( const MemberRow& row : selected.rows ) {
      table.add(
         { Programs::printable( row.interface ), Vantu::valueToStrep( row.group ),
           row.any ? "exclude" : "include", querierText( row ),
           versionText( mirror, row.version ),
           row.reporter.isUnspecified() ? "" : Vantu::valueToStrep( row.reporter ),
           askedText( row.until, now ), sourcesText( row, now ) } );
   }
   return table.text();
}

Json membersJson( const Members& selected, double now ) {
   Json list = Json::array();
   for ( const MemberRow& row : selected.rows ) {
      Json json;
      json["interface"] = row.interface;
      json["group"] = Vantu::valueToStrep( row.group );
      json["filter-mode"] = row.any ? "exclude" : "include";
      if ( row.version != 0 ) json["oldest-version"] = row.version;
      if ( row.until != 0.0 )
         json["expiration"] = expirationJson( row.until - now );
      if ( row.published && !row.published->querier.isUnspecified() )
         json["querier"] = Vantu::valueToStrep( row.published->querier );
      if ( !row.reporter.isUnspecified() )
         json["first-reporter"] = Vantu::valueToStrep( row.reporter );
      json["source"] = sourcesJson( row, now );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
