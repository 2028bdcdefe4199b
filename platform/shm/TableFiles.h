// The files of one table, side by side in one directory that the caller makes.
#pragma once

#include <sys/types.h>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

// All have mode 0640; who may read is the directory's and the group's affair.
struct PIMSM_API TableFiles {
   explicit TableFiles( const Mox::String& path );

   Mox::String table;  // the path itself: the current instance
   Mox::String fresh;  // path + ".new": an instance in the making
   Mox::String bell;   // path + ".bell": watched by readers, rung by the writer
   Mox::String lock;   // path + ".lock": locked while a writer lives
};

// Does a writer hold the table now? Works for a process that may only read.
// A missing or unreadable lock file reads as no.
PIMSM_API bool writerAlive( const Mox::String& path );

// Removes a table that has no writer, all its files; attached readers keep their
// mapping and find the table absent when they poll. Missing files are fine.
// Throws SecondWriterError while a writer lives.
PIMSM_API void removeTableFiles( const Mox::String& path );

}
