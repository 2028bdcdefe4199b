#include "platform/shm/detail/Mapping.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Brane::Detail {

Descriptor::~Descriptor() {
   if ( fd_ >= 0 ) close( fd_ );
}

Descriptor::Descriptor( Descriptor&& other ) noexcept
   : fd_( std::exchange( other.fd_, -1 ) ) {}

Descriptor& Descriptor::operator=( Descriptor&& other ) noexcept {
   std::swap( fd_, other.fd_ );
   return *this;
}

FileId fileIdOf( const Descriptor& file, const Mox::String& path ) {
   struct stat status;
   if ( fstat( file.get(), &status ) != 0 )
      systemFailed( path, "cannot look at the file" );
   return { status.st_dev, status.st_ino };
}

bool leadsTo( const Mox::String& path, const FileId& file ) {
   struct stat status;
   return lstat( path.c_str(), &status ) == 0 &&
          FileId{ status.st_dev, status.st_ino } == file;
}

Mapping::~Mapping() {
   if ( data_ ) munmap( data_, size_ );
}

Mapping::Mapping( Mapping&& other ) noexcept
   : data_( std::exchange( other.data_, nullptr ) ),
     size_( std::exchange( other.size_, 0 ) ) {}

Mapping& Mapping::operator=( Mapping&& other ) noexcept {
   std::swap( data_, other.data_ );
   std::swap( size_, other.size_ );
   return *this;
}

constexpr uint64_t largePage = 2 << 20;  // bytes

Mapping Mapping::of( int fd, uint64_t size, int protection, int flags,
                     const Mox::String& path ) {
   void* data = mmap( nullptr, size, protection, MAP_SHARED | flags, fd, 0 );
   if ( data == MAP_FAILED )
      systemFailed( path, errno == ENOMEM
                             ? "cannot map, vm.max_map_count may be too low"
                             : "cannot map" );
   // Takes large pages where the system allows them for shared memory.
   if ( size >= largePage ) madvise( data, size, MADV_HUGEPAGE );
   Mapping mapping;
   mapping.data_ = static_cast<std::byte*>( data );
   mapping.size_ = size;
   return mapping;
}

Mapping Mapping::ofFile( int fd, uint64_t size, bool writable,
                         const Mox::String& path ) {
   return of( fd, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_POPULATE,
              path );
}

Mapping Mapping::ofSparseFile( int fd, uint64_t size, const Mox::String& path ) {
   return of( fd, size, PROT_READ | PROT_WRITE, 0, path );
}

// Before Linux 5.14 each page comes with the first store to it.
void Mapping::populate( uint64_t from, uint64_t size ) {
#ifdef MADV_POPULATE_WRITE
   madvise( data_ + from, size, MADV_POPULATE_WRITE );
#endif
}

void systemFailed( const Mox::String& path, const char* what ) {
   Mox::String reason = std::strerror( errno );
   throw CreateError( path + ": " + what + ": " + reason );
}

namespace {

// Spares the attempt, which takes time and the space that others want meanwhile. A
// file system without a limit tells of no blocks.
bool hasRoom( int fd, uint64_t size ) {
   struct statvfs system;
   return fstatvfs( fd, &system ) != 0 || system.f_blocks == 0 ||
          uint64_t( system.f_bavail ) * system.f_frsize >= size;
}

// Allocates in pieces: a signal makes the kernel drop all pages of the interrupted
// call, so each piece must take less time than any timer's period. Returns the
// error, 0 for none.
int allocate( int fd, uint64_t from, uint64_t size ) {
   constexpr uint64_t piece = 1 << 20;
   for ( uint64_t at = from; at < from + size; at += piece ) {
      uint64_t length = std::min( piece, from + size - at );
      int error;
      do {
         error = posix_fallocate( fd, static_cast<off_t>( at ),
                                  static_cast<off_t>( length ) );
      } while ( error == EINTR );
      if ( error ) return error;
   }
   return 0;
}

[[noreturn]] void noSpace( const Mox::String& path, uint64_t size, int error ) {
   Mox::String what = fmt::format( "cannot allocate {} bytes", size );
   errno = error;
   systemFailed( path, what.c_str() );
}

}

Descriptor createSparseFile( const Mox::String& path, uint64_t size ) {
   // A writer that died while creating may have left one.
   unlink( path.c_str() );
   Descriptor file( openFile( path, O_RDWR | O_CREAT | O_EXCL ) );
   if ( !file ) systemFailed( path, "cannot create" );
   fchmod( file.get(), 0640 );  // independent of the umask
   int error = hasRoom( file.get(), size ) ? 0 : ENOSPC;
   if ( !error && ftruncate( file.get(), static_cast<off_t>( size ) ) != 0 )
      error = errno;
   if ( !error ) return file;
   unlink( path.c_str() );
   noSpace( path, size, error );
}

void allocateFile( const Descriptor& file, const Mox::String& path, uint64_t from,
                   uint64_t size ) {
   const int error = allocate( file.get(), from, size );
   if ( error ) noSpace( path, size, error );
}

Descriptor createFile( const Mox::String& path, uint64_t size ) {
   Descriptor file = createSparseFile( path, size );
   try {
      // A full file system must show now: a page missing later is a SIGBUS.
      allocateFile( file, path, 0, size );
   } catch ( const CreateError& ) {
      unlink( path.c_str() );
      throw;
   }
   return file;
}

int openFile( const Mox::String& path, int flags, mode_t mode ) {
   int fd;
   do {
      fd = open( path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode );
   } while ( fd < 0 && errno == EINTR );
   return fd;
}

}
