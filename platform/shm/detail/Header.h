// Writes and checks a table's header.
#pragma once

#include <cstddef>

#include "platform/shm/Error.h"
#include "platform/shm/detail/Geometry.h"

namespace Brane::Detail {

// The values of a new instance's header.
struct HeaderValues {
   uint32_t capacity = 0;
   uint32_t limit = 0;
   uint32_t journalEntries = 0;
   uint64_t instanceId = 0;
   uint64_t seed[2] = {};
   Mox::String bootId;
};

// Fills a new file's header, except the ready word.
void writeHeader( std::byte* base, const Layout& layout,
                  const HeaderValues& values );
void markReady( std::byte* base );

// Copies the header out of the first `available` bytes of a file of `fileSize`
// bytes and checks all that does not depend on the caller's layout. With
// `orFormer` also one of format version 2, which becomes one of this version but
// for its number. Throws LayoutError, whose texts begin with `path`.
FileHeader readHeader( const std::byte* base, uint64_t available, uint64_t fileSize,
                       const Mox::String& path, bool orFormer = false );

// Throws LayoutError unless the records have the caller's layout.
void checkRecord( const FileHeader& header, const Layout& layout,
                  const Mox::String& path );

Geometry geometryOf( const FileHeader& header );
Layout layoutOf( const FileHeader& header );
Mox::String bootIdOf( const FileHeader& header );

// The running boot's id; empty if the kernel does not tell.
Mox::String runningBootId();
// Of a new file: by the kernel.
uint64_t randomWord();

}
