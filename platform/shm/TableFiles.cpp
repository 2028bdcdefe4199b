#include "platform/shm/TableFiles.h"

#include <unistd.h>

#include "platform/shm/detail/Lock.h"

namespace Brane {

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
   unlink( files.table.c_str() );
   unlink( files.fresh.c_str() );
   unlink( files.bell.c_str() );
   unlink( files.lock.c_str() );
}

}
