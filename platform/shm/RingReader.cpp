#include "platform/shm/RingReader.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "platform/shm/TableFiles.h"
#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Lock.h"
#include "platform/shm/detail/RingFile.h"
#include "platform/shm/detail/Store.h"

namespace Brane {

struct RingReader::Ring {
   Ring( const Mox::String& path, const Layout& of )
      : files( path ), layout( of ) {}

   void attach( Detail::Descriptor found );
   bool drop( ReaderState why, Mox::String text );

   TableFiles files;
   Layout layout;
   ReaderState state = readerAbsent;
   Mox::String problem;
   Detail::Descriptor file;  // the one judged; kept open for its number's sake
   Detail::FileId id;
   uint64_t instance = 0;
   Detail::Mapping mapping;
   Detail::RingView view;
};

bool RingReader::Ring::drop( ReaderState why, Mox::String text ) {
   const bool changed = state != why;
   state = why;
   problem = std::move( text );
   mapping = Detail::Mapping();
   view = {};
   instance = 0;
   return changed;
}

void RingReader::Ring::attach( Detail::Descriptor found ) {
   drop( readerAbsent, {} );  // whatever the system refuses below
   file = std::move( found );
   id = Detail::fileIdOf( file, files.table );
   try {
      const Detail::RingHeader is = Detail::readRingHeader( file, files.table );
      if ( is.recordSize != layout.recordSize ||
           is.fingerprint != layout.fingerprint() ) {
         drop( readerMismatch,
               fmt::format(
                  "{}: layout {:#x} with records of {} bytes, this program's "
                  "is {:#x} with {}",
                  files.table, is.fingerprint, is.recordSize, layout.fingerprint(),
                  layout.recordSize ) );
         return;
      }
      const Detail::RingGeometry geometry{ is.recordSize, is.entries };
      mapping = Detail::Mapping::ofFile( file.get(), geometry.fileSize(), false,
                                         files.table );
      view = { mapping.data(), geometry };
      instance = is.instanceId;
      state = readerAttached;
   } catch ( const LayoutError& e ) {
      drop( readerDamaged, e.what() );
   }
}

RingReader::RingReader( const Mox::String& path, const Layout& layout ) {
   layout.check();
   ring_ = std::make_unique<Ring>( path, layout );
   poll();
}

RingReader::~RingReader() = default;

bool RingReader::poll() {
   Ring& ring = *ring_;
   if ( ring.file && Detail::leadsTo( ring.files.table, ring.id ) ) return false;
   Detail::Descriptor found(
      Detail::openFile( ring.files.table, O_RDONLY | O_NONBLOCK ) );
   if ( !found && ( errno == ENOENT || errno == ENOTDIR ) ) {
      ring.file = Detail::Descriptor();
      return ring.drop( readerAbsent, {} );
   }
   if ( !found ) Detail::systemFailed( ring.files.table, "cannot open" );
   ring.attach( std::move( found ) );
   return true;
}

ReaderState RingReader::state() const {
   return ring_->state;
}
const Mox::String& RingReader::problem() const {
   return ring_->problem;
}
bool RingReader::writerAlive() const {
   return Detail::writerRings( ring_->files.bell() );
}

uint64_t RingReader::instanceId() const {
   return ring_->instance;
}

// An impossible one is damage: then nothing can be read.
uint64_t RingReader::newest() const {
   if ( ring_->view.base == nullptr ) return 0;
   const uint64_t newest = Detail::loadWord( ring_->view.newest() );
   return newest < Detail::maxSequence ? newest : 0;
}

uint64_t RingReader::oldest() const {
   const uint64_t last = newest();
   const uint64_t entries = ring_->view.geometry.entries;
   return last == 0 ? 0 : last - std::min( last, entries ) + 1;
}

Lookup RingReader::read( uint64_t sequence, void* record, Entry& entry ) const {
   const Detail::RingView& view = ring_->view;
   if ( view.base == nullptr || sequence < oldest() || sequence > newest() )
      return lookupAbsent;
   Detail::RingCopy copy;
   if ( Detail::copyRingRecord( view, sequence, record, copy ) ) {
      entry = { copy.count, copy.last };
      return lookupFound;
   }
   // The next record may be taking its place.
   const uint64_t* stamp = &view.slot( view.geometry.slotOf( sequence ) )->stamp;
   return Detail::loadWord( stamp ) >> 1 > sequence ? lookupAbsent : lookupDamaged;
}

}
