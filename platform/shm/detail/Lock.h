// The lock that makes a process the one writer. It is the kernel's, on an open
// file, so it ends with the process in every case. A child made by fork() without
// exec shares it.
//
// Whoever can open a file can at least lock it for reading and so keep others out.
// So only the writer's user can open the lock file. Readers, who want to know
// whether a writer lives, test a second lock on the doorbell, which keeps nobody
// out.
#pragma once

#include <sys/types.h>

#include "platform/shm/TableFiles.h"
#include "platform/shm/detail/Mapping.h"

namespace Brane::Detail {

// Takes the lock and writes this process's id into the file for error messages.
// Throws SecondWriterError, CreateError.
Descriptor takeWriterLock( const TableFiles& files );

// Opens the doorbell for writing and locks it, for writerRings(). A doorbell that a
// reader has locked is replaced by a new file. REQUIRES: the writer lock. Throws
// CreateError.
Descriptor openLockedBell( const TableFiles& files );

// Does a writer hold the doorbell? False where it is missing or not readable.
bool writerRings( const Mox::String& bellPath );

}
