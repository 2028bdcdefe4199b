// The lock that makes a process the one writer: the kernel's, on an open file, so
// that it goes with the process however that ends. A child made by fork() without
// exec shares it.
#pragma once

#include <sys/types.h>

#include "platform/shm/TableFiles.h"
#include "platform/shm/detail/Mapping.h"

namespace Brane::Detail {

// Takes the lock and leaves this process's id in the file for error messages.
// Throws SecondWriterError, CreateError.
Descriptor takeWriterLock( const TableFiles& files );

// Is the file locked by a writer? False where it is missing or not readable.
bool writerLocked( const Mox::String& lockPath );

}
