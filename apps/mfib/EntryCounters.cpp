#include "apps/mfib/EntryCounters.h"

#include <unordered_set>

#include "platform/shm/Error.h"

namespace Forwarding {

using Published::MfibCache;
using Routing::Pim::RouteKey;

namespace {

// The kernel's total includes packets that came in by a wrong interface.
MfibCache recordOf( const StandingEntry& entry, const MfibCache& before,
                    double now ) {
   uint64_t packets = entry.packets - std::min( entry.wrongIf, entry.packets );
   MfibCache record{ entry.key, packets, entry.bytes, entry.wrongIf,
                     before.lastPacket };
   if ( packets != before.packets )
      record.lastPacket = packets == 0 ? 0.0 : now - entry.idle;
   return record;
}

}

void publishEntryCounters( const KernelTable& kernel, Published::MfibStatus& tables,
                           const std::function<bool( const RouteKey& )>& wanted,
                           double now ) {
   std::unordered_set<RouteKey> met;
   bool whole = kernel.visit( [&]( const StandingEntry& entry ) {
      if ( !wanted( entry.key ) ) return;
      met.insert( entry.key );
      MfibCache before;
      bool known = tables.cache().find( entry.key, before ) == Brane::lookupFound;
      if ( !known ) before = MfibCache();
      MfibCache record = recordOf( entry, before, now );
      if ( known && record == before ) return;
      try {
         tables.cacheIs( record );
      } catch ( const Brane::TableError& ) {
         // The table is full and has counted the refusal; the other records go on.
      }
   } );
   if ( !whole ) return;
   for ( const RouteKey& key : tables.cache().keys() ) {
      if ( met.count( key ) == 0 ) tables.cacheDel( key );
   }
}

}
