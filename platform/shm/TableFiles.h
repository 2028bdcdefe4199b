// The files of one table, side by side in one directory that the caller makes; or of
// a WriterSeat, which has a lock and a bell only.
#pragma once

#include <sys/types.h>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

// All files have mode 0640, the lock 0600; the directory and the group decide who
// may read. Only the writer's user may open the lock: whoever can open it can lock
// it.
struct PIMSM_API TableFiles {
   explicit TableFiles( const Mox::String& path ) : TableFiles( path, path ) {}
   // With the lock and the bell of that base, as tables share them.
   TableFiles( const Mox::String& path, const Mox::String& seat );

   Mox::String table;  // the path itself: the current instance
   Mox::String fresh;  // path + ".new": an instance in the making
   Mox::String bell;   // path + ".bell": watched by readers, rung and locked by
                       // a living writer
   Mox::String lock;   // path + ".lock": who has it locked is the writer
};

// Does a writer hold the table, or the seat, now? Works for a process that may only
// read. A missing or unreadable doorbell reads as no.
PIMSM_API bool writerAlive( const Mox::String& path );

// Retires a table without a writer and removes all its files. Attached readers keep
// their mapping and find the table absent when they poll. Missing files are no
// error. Throws SecondWriterError while a writer lives.
PIMSM_API void removeTableFiles( const Mox::String& path );

}
