// A mapped file, and the descriptor that keeps its inode apart from others.
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

// Which file it is, whatever its name. Somebody must hold the file, or another gets the
// number.
struct FileId {
   dev_t device = 0;
   ino_t inode = 0;
   bool operator==( const FileId& ) const = default;
};

// Of an open file. Throws CreateError.
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

   std::byte* data() const { return data_; }
   uint64_t size() const { return size_; }

 private:
   std::byte* data_ = nullptr;
   uint64_t size_ = 0;
};

// "path: what: reason of errno", thrown as CreateError.
[[noreturn]] void systemFailed( const Mox::String& path, const char* what );

// Makes a file of that size anew, every page allocated, mode 0640. Throws
// CreateError, and leaves no file then.
Descriptor createFile( const Mox::String& path, uint64_t size );

// Waits out interruptions. -1 and errno as open() does. `mode` is of a file made.
int openFile( const Mox::String& path, int flags, mode_t mode = 0640 );

}
