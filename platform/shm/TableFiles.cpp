#include "platform/shm/TableFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Lock.h"

namespace Brane {
namespace {

// Only in a file that is a table as far as its first word tells; others have no readers.
void markRetired( const Mox::String& path ) {
   Detail::Descriptor file( Detail::openFile( path, O_RDWR | O_NONBLOCK ) );
   uint64_t word = 0;
   if ( !file || pread( file.get(), &word, sizeof word, 0 ) != sizeof word ||
        word != Detail::magicWord )
      return;
   word = Detail::retiredWord;
   // Where it fails readers keep what they have read.
   if ( pwrite( file.get(), &word, sizeof word, Detail::retiredOffset ) < 0 )
      return;
}

}

TableFiles::TableFiles( const Mox::String& path )
   : table( path ),
     fresh( path + ".new" ),
     bell( path + ".bell" ),
     lock( path + ".lock" ) {}

bool writerAlive( const Mox::String& path ) {
   return Detail::writerRings( TableFiles( path ).bell );
}

void removeTableFiles( const Mox::String& path ) {
   TableFiles files( path );
   // Also makes the lock file, to find out; it goes with the others.
   Detail::Descriptor lock = Detail::takeWriterLock( files );
   markRetired( files.table );
   unlink( files.table.c_str() );
   unlink( files.fresh.c_str() );
   unlink( files.bell.c_str() );
   unlink( files.lock.c_str() );
}

}
