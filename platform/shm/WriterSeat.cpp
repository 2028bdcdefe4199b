#include "platform/shm/WriterSeat.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/shm/detail/Lock.h"

namespace Brane {

using Detail::Descriptor;
using Detail::fileIdOf;
using Detail::leadsTo;

struct WriterSeat::Files {
   TableFiles names;
   Descriptor lock;
   Descriptor bell;
   std::vector<Mox::String> others;  // further names of the bell
   bool removed = false;
};

WriterSeat::WriterSeat( const Mox::String& path )
   : files_( std::make_unique<Files>(
        Files{ TableFiles( path ), Descriptor(), Descriptor(), {} } ) ) {
   files_->lock = Detail::takeWriterLock( files_->names );
   files_->bell = Detail::openLockedBell( files_->names );
   // The bell's byte is allocated for good, before tables take their space.
   if ( !ring() )
      Detail::systemFailed( files_->names.bell(), "cannot write the doorbell" );
}

WriterSeat::~WriterSeat() = default;

const Mox::String& WriterSeat::path() const {
   return files_->names.table;
}

void WriterSeat::addBell( const Mox::String& base ) {
   const Mox::String bell = TableFiles( base ).bell();
   auto& others = files_->others;
   if ( bell == files_->names.bell() ||
        std::find( others.begin(), others.end(), bell ) != others.end() )
      return;
   others.push_back( bell );
   nameBells();
}

// A former name leads to a dead writer's bell, or to a stranger's file.
void WriterSeat::nameBells() const {
   const Detail::FileId bell = fileIdOf( files_->bell, files_->names.bell() );
   for ( const Mox::String& name : files_->others ) {
      if ( leadsTo( name, bell ) ) continue;
      unlink( name.c_str() );
      if ( link( files_->names.bell().c_str(), name.c_str() ) != 0 )
         Detail::systemFailed( name, "cannot name the doorbell" );
   }
}

// Readers watch for the write itself, not for the byte.
bool WriterSeat::ring() const {
   char byte = 0;
   return pwrite( files_->bell.get(), &byte, 1, 0 ) == 1;
}

bool WriterSeat::stands() const {
   if ( files_->removed ) return true;
   const Detail::FileId bell = fileIdOf( files_->bell, files_->names.bell() );
   auto named = [&]( const Mox::String& name ) { return leadsTo( name, bell ); };
   return leadsTo( files_->names.lock(),
                   fileIdOf( files_->lock, files_->names.lock() ) ) &&
          named( files_->names.bell() ) &&
          std::all_of( files_->others.begin(), files_->others.end(), named );
}

// The lock first: the files under the other names may be another writer's.
void WriterSeat::restore() {
   const TableFiles& names = files_->names;
   if ( !leadsTo( names.lock(), fileIdOf( files_->lock, names.lock() ) ) )
      files_->lock = Detail::takeWriterLock( names );
   if ( !leadsTo( names.bell(), fileIdOf( files_->bell, names.bell() ) ) ) {
      files_->bell = Detail::openLockedBell( names );
      ring();
   }
   nameBells();
}

void WriterSeat::removeFiles() {
   if ( std::exchange( files_->removed, true ) ) return;
   for ( const Mox::String& name : files_->others ) unlink( name.c_str() );
   unlink( files_->names.bell().c_str() );
   unlink( files_->names.lock().c_str() );
}

}
