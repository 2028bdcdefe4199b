#include <fmt/format.h>

#include "apps/mirror/AgentTables.h"
#include "apps/mirror/KernelEntries.h"
#include "apps/show/reports/Checks.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace {

std::string differenceText( const Route& route,
                            const EntryDifference& difference ) {
   switch ( difference.kind ) {
      case EntryDifference::sends:
         return "the kernel's entry sends out by it, and the table does not";
      case EntryDifference::lacks:
         return "the table forwards by it, and the kernel's entry does not";
      default:
         return fmt::format(
            "the kernel's entry takes packets from {}, and the table those of {}",
            difference.intfId.empty() ? "an interface that has gone" : "it",
            rpfText( route.incomingRpf(), route.incomingAttached() ) );
   }
}

}

void checkEntries( const Facts& facts, const RouteFilter& filter,
                   Checked& checked ) {
   const KernelEntries* kernel = facts.kernel();
   const Mirror& mirror = facts.mirror();
   const bool known = kernel != nullptr && isReady( mirror.mfib->vif() ) &&
                      mirror.mfib->vif().writerAlive();
   if ( !known ) return;
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      const Host::Entry* entry = kernel->find( route->key() );
      if ( entry == nullptr ) continue;
      for ( const auto& difference : kernel->differences( *route, *entry ) ) {
         if ( difference.bounded || !filter.matches( difference.intfId ) ) continue;
         checked.findings.push_back( { "entry-differs", route->key(),
                                       difference.intfId,
                                       differenceText( *route, difference ),
                                       explainCall( route->key(), {} ) } );
      }
   }
}

}
