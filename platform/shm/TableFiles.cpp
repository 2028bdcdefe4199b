#include "platform/shm/TableFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Lock.h"

namespace Brane {
namespace {

// Marks only a file whose first word is a table's; other files have no readers.
void markRetired( const Mox::String& path ) {
   Detail::Descriptor file( Detail::openFile( path, O_RDWR | O_NONBLOCK ) );
   struct {
      uint64_t magic;
      uint32_t version;
   } begin{};
   if ( !file || pread( file.get(), &begin, sizeof begin, 0 ) != sizeof begin ||
        begin.magic != Detail::magicWord )
      return;
   const uint64_t word = Detail::retiredWord;
   const off_t at = begin.version == Detail::formerVersion
                       ? Detail::formerRetiredOffset
                       : offsetof( Detail::FileHeader, retired );
   // When this fails, readers keep the records that they have read.
   if ( pwrite( file.get(), &word, sizeof word, at ) < 0 ) return;
}

}

bool writerAlive( const Mox::String& path ) {
   return Detail::writerRings( TableFiles( path ).bell() );
}

void removeTableFiles( const Mox::String& path ) {
   TableFiles files( path );
   // Taking the lock makes the lock file, which is removed with the others.
   Detail::Descriptor lock = Detail::takeWriterLock( files );
   markRetired( files.table );
   unlink( files.table.c_str() );
   unlink( files.fresh().c_str() );
   unlink( files.bell().c_str() );
   unlink( files.lock().c_str() );
}

}
