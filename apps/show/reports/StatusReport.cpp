#include "apps/show/reports/StatusReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;

namespace {

// "unresolved 2, switching 0, to be deleted unknown"
std::string pendingText( const Mirror& mirror ) {
   std::string text;
   for ( const Pending& pending : pendingRoutes( mirror ) )
      text += fmt::format(
         "{}{} {}", text.empty() ? "" : ", ", pending.state,
         pending.routes ? std::to_string( *pending.routes ) : "unknown" );
   std::replace( text.begin(), text.end(), '-', ' ' );
   return text;
}

std::string tableLine( const MoxBrane::TableBase& table ) {
   const std::string problem = unreadableText( table );
   if ( !problem.empty() )
      return fmt::format( "    {:<19} cannot be read: {}\n", tableName( table ),
                          problem );
   return fmt::format( "    {:<19} {:>8} used {:>8} free of {}\n",
                       tableName( table ), table.size(),
                       table.capacity() - table.size(), table.capacity() );
}

bool isPublished( const MoxBrane::TableBase& table ) {
   return isReady( table ) || !unreadableText( table ).empty();
}

// The forwarding process's tables; none if it has never run.
std::vector<const MoxBrane::TableBase*> mfibTables( const Mirror& mirror ) {
   std::vector<const MoxBrane::TableBase*> tables;
   for ( const MoxBrane::TableBase* table : mirror.mfib->tables() )
      if ( isPublished( *table ) ) tables.push_back( table );
   return tables;
}

bool mfibAlive( const Mirror& mirror ) {
   return mirror.mfib->cache().writerAlive();
}

Json tableJson( const MoxBrane::TableBase& table ) {
   Json json;
   json["name"] = tableName( table );
   const std::string problem = unreadableText( table );
   if ( !problem.empty() ) {
      json["problem"] = problem;
      return json;
   }
   json["used"] = table.size();
   json["capacity"] = table.capacity();
   json["generation"] = fmt::format( "{:016x}", table.reader()->instanceId() );
   json["changes"] = std::to_string( table.reader()->sequence() );
   return json;
}

}

std::string statusText( const Mirror& mirror ) {
   std::string text =
      fmt::format( "vrf {} {}: agent {}\n", vrfText( mirror ),
                   familyName( mirror.family ), mirror.writerStory() );
   for ( const MoxBrane::TableBase* table : agentTables( mirror ) ) {
      if ( isPublished( *table ) ) text += tableLine( *table );
   }
   const RouteCounts routes = countRoutes( mirror );
   text +=
      fmt::format( "    routes        {} (*,G), {} (S,G)\n", routes.wc, routes.sg );
   text += "    pending       " + pendingText( mirror ) + '\n';
   const Brane::TableReader* route = mirror.tables->route().reader();
   text += fmt::format( "    generation    {:016x}, {} route changes\n",
                        route->instanceId(), route->sequence() );
   const auto since = mirror.sinceLastWrite();
   text += fmt::format( "    last write    {}\n",
                        since ? spanText( *since ) + " ago" : "unknown" );
   const auto mfib = mfibTables( mirror );
   if ( mfib.empty() ) return text + "    forwarding process unknown: no tables\n";
   text += fmt::format( "    forwarding process {}\n",
                        mfibAlive( mirror ) ? "running" : "gone" );
   for ( const MoxBrane::TableBase* table : mfib ) text += tableLine( *table );
   return text;
}

Json statusJson( const Mirror& mirror ) {
   Json json;
   const RouteCounts routes = countRoutes( mirror );
   json["wc-routes"] = routes.wc;
   json["sg-routes"] = routes.sg;
   for ( const MoxBrane::TableBase* table : agentTables( mirror ) ) {
      if ( isPublished( *table ) ) json["table"].push_back( tableJson( *table ) );
   }
   if ( auto since = mirror.sinceLastWrite() )
      json["since-last-write"] = timeticks( *since );
   const auto mfib = mfibTables( mirror );
   if ( !mfib.empty() ) {
      json["forwarding-process"]["writer"] =
         mfibAlive( mirror ) ? "running" : "gone";
      for ( const MoxBrane::TableBase* table : mfib )
         json["forwarding-process"]["table"].push_back( tableJson( *table ) );
   }
   for ( const Pending& pending : pendingRoutes( mirror ) )
      if ( pending.routes ) json[pending.state] = *pending.routes;
   return json;
}

}
