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
   uint64_t packets = entry.expected();
   MfibCache record{ entry.key, packets, entry.bytes, entry.wrongIf,
                     before.lastPacket };
   // An entry made anew counts from 0; its former packets have come all the same.
   if ( packets != before.packets && packets != 0 )
      record.lastPacket = now - entry.idle;
   return record;
}

}

void publishEntryCounters( const StandingEntry& entry,
                           Published::MfibStatus& tables, double now ) {
   MfibCache before;
   const bool known =
      tables.cache().find( entry.key, before ) == Brane::lookupFound;
   if ( !known ) before = MfibCache();
   const MfibCache record = recordOf( entry, before, now );
   if ( known && record == before ) return;
   try {
      tables.cacheIs( record );
   } catch ( const Brane::TableError& ) {
      // The table is full and has counted the refusal; the other records go on.
   }
}

void publishEntryCounters( const KernelTable& kernel, Published::MfibStatus& tables,
                           const std::function<bool( const RouteKey& )>& wanted,
                           double now ) {
   std::unordered_set<RouteKey> met;
   bool whole = kernel.visit( [&]( const StandingEntry& entry ) {
      if ( !wanted( entry.key ) ) return;
      met.insert( entry.key );
      publishEntryCounters( entry, tables, now );
   } );
   if ( !whole ) return;
   for ( const RouteKey& key : tables.cache().keys() ) {
      if ( met.count( key ) == 0 ) tables.cacheDel( key );
   }
}

}
