#include "apps/mirror/AgentTables.h"

#include <algorithm>

namespace Show {

std::vector<const MoxBrane::TableBase*> agentTables( const Mirror& mirror ) {
   std::vector<const MoxBrane::TableBase*> tables;
   for ( const MoxBrane::MountedEntity* entity :
         std::initializer_list<const MoxBrane::MountedEntity*>{
            mirror.tables.get(), mirror.registers.get(), mirror.advertised.get(),
            mirror.agent.get() } )
      tables.insert( tables.end(), entity->tables().begin(),
                     entity->tables().end() );
   return tables;
}

bool isReady( const MoxBrane::TableBase& table ) {
   return table.control()->mountStatus() == MoxBrane::mountReady;
}

std::string unreadableText( const MoxBrane::TableBase& table ) {
   using Problem = Mirror::Problem;
   const Problem problem = Mirror::problem( table );
   const auto& siblings = table.control()->entity()->tables();
   const bool published =
      std::any_of( siblings.begin(), siblings.end(), []( const auto* each ) {
         return Mirror::problem( *each ).kind != Problem::missing;
      } );
   return problem.kind == Problem::none || !published ? "" : problem.text;
}

std::string tableName( const MoxBrane::TableBase& table ) {
   return table.name() == "coll" ? "advertised" : table.name();
}

std::array<Pending, 3> pendingRoutes( const Mirror& mirror ) {
   using namespace Routing::Pim::SparseMode::Brane;
   const auto count = [&]( RouteCounterType type ) {
      RouteCounter record;
      const bool found = mirror.tables->routeCounter().find(
                            { type, 0 }, record ) == ::Brane::lookupFound;
      return found ? std::optional( record.count ) : std::nullopt;
   };
   return { { { "unresolved", count( unresolved ) },
              { "switching", count( switching ) },
              { "to-be-deleted", count( toBeDeleted ) } } };
}

RouteCounts countRoutes( const Mirror& mirror ) {
   namespace Sm = Routing::Pim::SparseMode;
   RouteCounts counts;
   mirror.tables->route().visit( [&]( const Sm::Brane::Route& route ) {
      ++( route.key.source.isUnspecified() ? counts.wc : counts.sg );
      return true;
   } );
   mirror.tables->routeIntf().visit( []( const auto& ) { return true; } );
   return counts;
}

}
