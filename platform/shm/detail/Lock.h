// The lock that makes a process the one writer: the kernel's, on an open file, so
// that it goes with the process however that ends. A child made by fork() without
// exec shares it.
//
// Who can open a file can lock it against others, for reading at least. So only the
// writer's user can open the lock file, and readers, who want to know whether a writer
// lives, look for a second lock: on the doorbell, which keeps nobody out.
#pragma once

#include <sys/types.h>

#include "platform/shm/TableFiles.h"
#include "platform/shm/detail/Mapping.h"

namespace Brane::Detail {

// Takes the lock and leaves this process's id in the file for error messages.
// Throws SecondWriterError, CreateError.
Descriptor takeWriterLock( const TableFiles& files );

// Opens the doorbell for writing and locks it, for writerRings(). One that a reader has
// locked is replaced by a new file. REQUIRES: the writer lock. Throws CreateError.
Descriptor openLockedBell( const TableFiles& files );

// Is the doorbell some writer's? False where it is missing or not readable.
bool writerRings( const Mox::String& bellPath );

}
