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

// Returns false when another lock is in the way.
bool tryLock( int fd, const Mox::String& path ) {
   struct flock lock = wholeFile( F_WRLCK );
   if ( fcntl( fd, F_OFD_SETLK, &lock ) == 0 ) return true;
   if ( errno != EAGAIN && errno != EACCES ) systemFailed( path, "cannot lock" );
   return false;
}

// Would a lock of that type be refused? Takes none.
bool lockedAgainst( short type, int fd ) {
   struct flock lock = wholeFile( type );
   return fcntl( fd, F_OFD_GETLK, &lock ) == 0 && lock.l_type != F_UNLCK;
}

[[noreturn]] void refuseSecond( const TableFiles& files, int fd ) {
   if ( !lockedAgainst( F_RDLCK, fd ) && lockedAgainst( F_WRLCK, fd ) ) {
      throw CreateError( files.lock() +
                         ": locked for reading, by a process that is no writer" );
   }
   pid_t pid = pidIn( fd );
   Mox::String who = pid ? "process " + std::to_string( pid ) : "another process";
   throw SecondWriterError( files.table + " is written by " + who, pid );
}

void leavePid( int fd ) {
   // Fixed width: nothing of a longer former text remains.
   Mox::String text = std::to_string( getpid() );
   text.resize( 15, '\n' );
   // Only for messages: nothing depends on it.
   if ( pwrite( fd, text.data(), text.size(), 0 ) < 0 ) return;
}

}

Descriptor takeWriterLock( const TableFiles& files ) {
   for ( int attempt = 0; attempt < 16; ++attempt ) {
      Descriptor file( openFile( files.lock(), O_RDWR | O_CREAT, 0600 ) );
      if ( !file ) systemFailed( files.lock(), "cannot open the lock file" );
      if ( !tryLock( file.get(), files.lock() ) ) refuseSecond( files, file.get() );
      // A first writer that removes its table removes the lock file, too. A process
      // that waited for that file must not lock a file without a name.
      if ( !leadsTo( files.lock(), fileIdOf( file, files.lock() ) ) ) continue;
      fchmod( file.get(), 0600 );
      leavePid( file.get() );
      return file;
   }
   throw SecondWriterError( files.table + " is being removed again and again", 0 );
}

Descriptor openLockedBell( const TableFiles& files ) {
   const char* what = "cannot open the doorbell";
   Descriptor bell( openFile( files.bell(), O_WRONLY | O_CREAT ) );
   if ( !bell ) systemFailed( files.bell(), what );
   if ( !tryLock( bell.get(), files.bell() ) ) {
      // Nobody else can open the new file before it is locked.
      unlink( files.bell().c_str() );
      bell =
         Descriptor( openFile( files.bell(), O_WRONLY | O_CREAT | O_EXCL, 0600 ) );
      if ( !bell ) systemFailed( files.bell(), what );
      tryLock( bell.get(), files.bell() );
   }
   fchmod( bell.get(), 0640 );
   return bell;
}

// A reader's own lock is a read lock, which does not conflict with another.
bool writerRings( const Mox::String& bellPath ) {
   Descriptor bell( openFile( bellPath, O_RDONLY | O_NONBLOCK ) );
   return bell && lockedAgainst( F_RDLCK, bell.get() );
}

}
