#include "platform/shm/detail/Lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace Brane::Detail {

namespace {

struct flock wholeFile( short type ) {
   struct flock lock;
   std::memset( &lock, 0, sizeof( lock ) );
   lock.l_type = type;
   lock.l_whence = SEEK_SET;
   return lock;
}

pid_t pidIn( int fd ) {
   char text[16] = {};
   if ( pread( fd, text, sizeof( text ) - 1, 0 ) <= 0 ) return 0;
   return static_cast<pid_t>( std::strtol( text, nullptr, 10 ) );
}

[[noreturn]] void refuseSecond( const Mox::String& path, int fd ) {
   pid_t pid = pidIn( fd );
   Mox::String who = pid ? "process " + std::to_string( pid ) : "another process";
   throw SecondWriterError( path + " is written by " + who, pid );
}

// A first writer that removes its table takes the lock file away, too; who waited
// for that file must not lock what has no name any more.
bool stillNamed( int fd, const Mox::String& path ) {
   struct stat mine, named;
   return fstat( fd, &mine ) == 0 && stat( path.c_str(), &named ) == 0 &&
          mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
}

void leavePid( int fd ) {
   // Fixed width: a longer former text leaves nothing behind.
   Mox::String text = std::to_string( getpid() );
   text.resize( 15, '\n' );
   // Only for messages: nothing depends on it.
   if ( pwrite( fd, text.data(), text.size(), 0 ) < 0 ) return;
}

}

Descriptor takeWriterLock( const TableFiles& files ) {
   for ( int attempt = 0; attempt < 16; ++attempt ) {
      Descriptor file( openFile( files.lock, O_RDWR | O_CREAT ) );
      if ( !file ) systemFailed( files.lock, "cannot open the lock file" );
      struct flock lock = wholeFile( F_WRLCK );
      if ( fcntl( file.get(), F_OFD_SETLK, &lock ) != 0 ) {
         if ( errno == EAGAIN || errno == EACCES ) {
            refuseSecond( files.table, file.get() );
         }
         systemFailed( files.lock, "cannot lock" );
      }
      if ( !stillNamed( file.get(), files.lock ) ) continue;
      fchmod( file.get(), 0640 );
      leavePid( file.get() );
      return file;
   }
   throw SecondWriterError( files.table + " is being removed again and again", 0 );
}

bool writerLocked( const Mox::String& lockPath ) {
   Descriptor file( openFile( lockPath, O_RDONLY ) );
   if ( !file ) return false;
   struct flock lock = wholeFile( F_RDLCK );
   return fcntl( file.get(), F_OFD_GETLK, &lock ) == 0 && lock.l_type != F_UNLCK;
}

}
