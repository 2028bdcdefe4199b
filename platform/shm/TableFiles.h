// The files of one table, side by side in one directory that the caller makes.
#pragma once

#include <sys/types.h>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

// All have mode 0640, the lock 0600; who may read is the directory's and the group's
// affair. None may open the lock but the writer's user: a reader could lock it, too.
struct PIMSM_API TableFiles {
   explicit TableFiles( const Mox::String& path );

   Mox::String table;  // the path itself: the current instance
   Mox::String fresh;  // path + ".new": an instance in the making
   Mox::String bell;   // path + ".bell": watched by readers, rung and locked by
                       // a living writer
   Mox::String lock;   // path + ".lock": who has it locked is the writer
};

// Does a writer hold the table now? Works for a process that may only read.
// A missing or unreadable doorbell reads as no.
PIMSM_API bool writerAlive( const Mox::String& path );

// Retires a table that has no writer, and removes all its files; attached readers keep
// their mapping and find the table absent when they poll. Missing files are fine.
// Throws SecondWriterError while a writer lives.
PIMSM_API void removeTableFiles( const Mox::String& path );

}
