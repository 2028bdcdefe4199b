#include "platform/shm/detail/NewInstance.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace Brane::Detail {

NewInstance::NewInstance( const Mox::String& path, const Layout& layout,
                          const HeaderValues& values )
   : path_( path ), layout_( layout ), values_( values ) {
   const Geometry geometry = Geometry::of( layout.keySize, layout.recordSize,
                                           uint32_t( layout.fields.size() ),
                                           values.capacity, values.journalEntries );
   descriptor_ = createSparseFile( path, geometry.fileSize );
   file_ = fileIdOf( descriptor_, path );
   try {
      mapping_ = std::make_shared<Mapping>(
         Mapping::ofSparseFile( descriptor_.get(), geometry.fileSize, path ) );
   } catch ( const CreateError& ) {
      unlink( path.c_str() );
      throw;
   }
   view_ = { mapping_->data(), geometry, { values.seed[0], values.seed[1] } };
}

// Another process may have made its own file at the path.
NewInstance::~NewInstance() {
   if ( !named_ && leadsTo( path_, file_ ) ) unlink( path_.c_str() );
}

bool NewInstance::allocate( uint64_t bytes ) {
   const uint64_t size = view_.geometry.fileSize;
   const uint64_t piece = std::min( bytes, size - allocated_ );
   mapping_->populate( allocated_, piece );
   allocateFile( descriptor_, path_, allocated_, piece );
   allocated_ += piece;
   return allocated_ == size;
}

void NewInstance::startAfter( uint64_t sequence ) {
   writeHeader( view_.base, layout_, values_ );
   storeWord( view_.journal( sequence ), journalEntry( 0, sequence ) );
   storeWord( view_.head(), sequence );
}

void NewInstance::nameIs( const Mox::String& path ) {
   markReady( view_.base );
   if ( !leadsTo( path_, file_ ) )
      throw CreateError( path_ + ": is not this process's file any more" );
   if ( rename( path_.c_str(), path.c_str() ) != 0 )
      systemFailed( path, "cannot rename the new instance" );
   named_ = true;
   descriptor_ = Descriptor();
}

}
