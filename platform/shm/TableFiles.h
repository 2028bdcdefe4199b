// The files of one table, side by side in one directory that the caller makes; or of
// a WriterSeat, which has a lock and a bell only.
#pragma once

#include <sys/types.h>

#include <utility>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

// All files have mode 0640, the lock 0600; the directory and the group decide who
// may read. Only the writer's user may open the lock: whoever can open it can lock
// it.
struct PIMSM_API TableFiles {
   explicit TableFiles( Mox::String path ) : table( std::move( path ) ) {}
   // With the lock and the bell of that base, as tables share them.
   TableFiles( Mox::String path, const Mox::String& base )
      : table( std::move( path ) ), seat( base == table ? Mox::String() : base ) {}

   // An instance in the making.
   Mox::String fresh() const { return table + ".new"; }
   // Watched by readers, rung and locked by a living writer.
   Mox::String bell() const { return ( seat.empty() ? table : seat ) + ".bell"; }
   // Who has it locked is the writer.
   Mox::String lock() const { return ( seat.empty() ? table : seat ) + ".lock"; }

   Mox::String table;  // the path itself: the current instance
   Mox::String seat;   // empty: the path
};

// Does a writer hold the table, or the seat, now? Works for a process that may only
// read. A missing or unreadable doorbell reads as no.
PIMSM_API bool writerAlive( const Mox::String& path );

// Retires a table without a writer and removes all its files. Attached readers keep
// their mapping and find the table absent when they poll. Missing files are no
// error. Throws SecondWriterError while a writer lives.
PIMSM_API void removeTableFiles( const Mox::String& path );

}
