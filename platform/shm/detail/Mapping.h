// A mapped file, and the descriptor that keeps its inode number from being reused.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

#include "platform/shm/Error.h"

namespace Brane::Detail {

// Closes on destruction; -1 is none.
class Descriptor {
 public:
   explicit Descriptor( int fd = -1 ) : fd_( fd ) {}
   ~Descriptor();
   Descriptor( Descriptor&& other ) noexcept;
   Descriptor& operator=( Descriptor&& other ) noexcept;

   int get() const { return fd_; }
   explicit operator bool() const { return fd_ >= 0; }

 private:
   int fd_;
};

// Identifies a file whatever its name. Somebody must hold the file open, or another
// file may get its number.
struct FileId {
   dev_t device = 0;
   ino_t inode = 0;
   bool operator==( const FileId& ) const = default;
};

// The id of an open file. Throws CreateError.
FileId fileIdOf( const Descriptor& file, const Mox::String& path );

// Does the name lead to this file now?
bool leadsTo( const Mox::String& path, const FileId& file );

class Mapping {
 public:
   Mapping() = default;
   ~Mapping();
   Mapping( Mapping&& other ) noexcept;
   Mapping& operator=( Mapping&& other ) noexcept;

   // Maps the first `size` bytes, all pages present. Throws CreateError.
   static Mapping ofFile( int fd, uint64_t size, bool writable,
                          const Mox::String& path );
   // Maps the first `size` bytes for writing, no page present. Throws CreateError.
   static Mapping ofSparseFile( int fd, uint64_t size, const Mox::String& path );

   // Makes the pages present, as far as the system can. `from` is that of a page.
   void populate( uint64_t from, uint64_t size );

   std::byte* data() const { return data_; }
   uint64_t size() const { return size_; }

 private:
   static Mapping of( int fd, uint64_t size, int protection, int flags,
                      const Mox::String& path );

   std::byte* data_ = nullptr;
   uint64_t size_ = 0;
};

// Throws CreateError with "path: what: reason of errno".
[[noreturn]] void systemFailed( const Mox::String& path, const char* what );

// Makes a new file of that size, every page allocated, mode 0640. Throws
// CreateError, and leaves no file then.
Descriptor createFile( const Mox::String& path, uint64_t size );

// The same without its space, which is there at the moment. Throws CreateError.
Descriptor createSparseFile( const Mox::String& path, uint64_t size );
// Gives it space for those bytes. Throws CreateError; the file stays then.
void allocateFile( const Descriptor& file, const Mox::String& path, uint64_t from,
                   uint64_t size );

// Opens as open() does, but repeats after interruptions. `mode` is that of a new
// file.
int openFile( const Mox::String& path, int flags, mode_t mode = 0640 );

}
