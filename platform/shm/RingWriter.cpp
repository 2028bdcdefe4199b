#include "platform/shm/RingWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "platform/shm/TableFiles.h"
#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Header.h"
#include "platform/shm/detail/RingFile.h"
#include "platform/shm/detail/Store.h"

namespace Brane {

using Detail::RingGeometry;
using Detail::RingHeader;
using Detail::RingSlot;

namespace {

RingHeader headerOf( const Layout& layout, uint32_t entries ) {
   RingHeader header{};
   header.magic = Detail::ringMagic;
   header.version = Detail::ringVersion;
   header.byteOrder = Detail::byteOrderMark;
   header.recordSize = layout.recordSize;
   header.entries = entries;
   header.fingerprint = layout.fingerprint();
   header.instanceId = Detail::randomWord();
   const Mox::String bootId = Detail::runningBootId();
   std::memcpy( header.bootId, bootId.data(),
                std::min<size_t>( bootId.size(), 39 ) );
   return header;
}

// A torn record's slot says nothing, so every slot is looked at.
uint64_t newestIn( const Detail::RingView& view ) {
   std::vector<std::byte> record( view.geometry.recordSize );
   Detail::RingCopy copy;
   uint64_t newest = 0;
   for ( uint64_t index = 0; index < view.geometry.entries; ++index ) {
      const uint64_t sequence = view.slot( index )->stamp >> 1;
      if ( sequence > newest && sequence < Detail::maxSequence &&
           view.geometry.slotOf( sequence ) == index &&
           Detail::copyRingRecord( view, sequence, record.data(), copy ) )
         newest = sequence;
   }
   return newest;
}

}

struct RingWriter::Ring {
   struct Mapped {
      static Mapped of( const Detail::Descriptor& file,
                        const RingGeometry& geometry, const Mox::String& path );

      Detail::FileId id;
      Detail::Mapping mapping;
      Detail::RingView view;
   };

   Ring( const Mox::String& path, const Layout& layout, uint32_t entries );

   std::optional<Mapped> readFormer();
   void make( const Detail::RingView* former );
   void copyRecords( const Detail::RingView& from,
                     const Detail::RingView& to ) const;
   uint64_t write( uint64_t sequence, const void* record,
                   const Detail::RingCopy& copy,
                   const Detail::RingView& view ) const;

   TableFiles files;
   RingHeader header;  // of a new file
   WriterSeat seat;
   Mapped file;
   uint64_t newest = 0;
   bool changed = false;
   Mox::String problem;
};

RingWriter::Ring::Ring( const Mox::String& path, const Layout& layout,
                        uint32_t entries )
   : files( path ), header( headerOf( layout, entries ) ), seat( path ) {
   std::optional<Mapped> former = readFormer();
   if ( former ) newest = newestIn( former->view );
   if ( !former || former->view.geometry.entries != entries ) {
      make( former ? &former->view : nullptr );
      return;
   }
   file = std::move( *former );
   Detail::storeWord( file.view.newest(), newest );
}

RingWriter::Ring::Mapped RingWriter::Ring::Mapped::of(
   const Detail::Descriptor& file, const RingGeometry& geometry,
   const Mox::String& path ) {
   Mapped out;
   out.id = Detail::fileIdOf( file, path );
   out.mapping =
      Detail::Mapping::ofFile( file.get(), geometry.fileSize(), true, path );
   out.view = { out.mapping.data(), geometry };
   return out;
}

// Nothing when there is no ring that can be taken over; the problem says why.
std::optional<RingWriter::Ring::Mapped> RingWriter::Ring::readFormer() {
   Detail::Descriptor found( Detail::openFile( files.table, O_RDWR | O_NONBLOCK ) );
   if ( !found && errno == ENOENT ) return std::nullopt;
   if ( !found ) Detail::systemFailed( files.table, "cannot open" );
   try {
      const RingHeader is = Detail::readRingHeader( found, files.table );
      if ( std::strncmp( is.bootId, header.bootId, sizeof( is.bootId ) ) != 0 ) {
         problem = files.table + ": from before the last boot";
      } else if ( is.recordSize != header.recordSize ||
                  is.fingerprint != header.fingerprint ) {
         problem = files.table + ": of another layout";
      } else {
         header.instanceId = is.instanceId;  // its records stay
         return Mapped::of( found, { is.recordSize, is.entries }, files.table );
      }
   } catch ( const LayoutError& e ) {
      problem = e.what();
   }
   return std::nullopt;
}

void RingWriter::Ring::make( const Detail::RingView* former ) {
   const RingGeometry geometry{ header.recordSize, header.entries };
   const Detail::Descriptor made =
      Detail::createFile( files.fresh(), geometry.fileSize() );
   Mapped next = Mapped::of( made, geometry, files.fresh() );
   if ( former != nullptr ) copyRecords( *former, next.view );
   *next.view.newest() = newest;
   Detail::writeRingHeader( next.view.base, header );
   if ( std::rename( files.fresh().c_str(), files.table.c_str() ) != 0 )
      Detail::systemFailed( files.table, "cannot rename the new ring" );
   file = std::move( next );
}

void RingWriter::Ring::copyRecords( const Detail::RingView& from,
                                    const Detail::RingView& to ) const {
   std::vector<std::byte> record( header.recordSize );
   const uint64_t room = std::min( from.geometry.entries, to.geometry.entries );
   Detail::RingCopy copy;
   for ( uint64_t each = newest > room ? newest - room + 1 : 1; each <= newest;
         ++each ) {
      if ( Detail::copyRingRecord( from, each, record.data(), copy ) )
         write( each, record.data(), copy, to );
   }
}

uint64_t RingWriter::Ring::write( uint64_t sequence, const void* record,
                                  const Detail::RingCopy& copy,
                                  const Detail::RingView& view ) const {
   const uint64_t index = view.geometry.slotOf( sequence );
   RingSlot* const slot = view.slot( index );
   Detail::storeWord( &slot->stamp, sequence << 1 );
   Detail::storeFence();
   const uint64_t checksum =
      Detail::storeRecord( view.record( index ), record, view.geometry.recordSize,
                           { sequence, index, 0 } );
   Detail::storeWord( &slot->checksum, checksum );
   Detail::storeWord( &slot->count, copy.count );
   Detail::storeWord( &slot->last, std::bit_cast<uint64_t>( copy.last ) );
   Detail::storeWord( &slot->stamp, sequence << 1 | 1 );
   return index;
}

RingWriter::RingWriter( const Mox::String& path, const Layout& layout,
                        uint32_t entries ) {
   layout.check();
   if ( entries == 0 || entries > maxEntries )
      throw Mox::RangeError( fmt::format( "a ring of {} entries", entries ) );
   ring_ = std::make_unique<Ring>( path, layout, entries );
}

RingWriter::~RingWriter() = default;

uint64_t RingWriter::add( const void* record, double at ) {
   const uint64_t sequence = ring_->newest + 1;
   const Detail::RingView& view = ring_->file.view;
   const uint64_t index = ring_->write( sequence, record, { 1, at }, view );
   ring_->newest = sequence;
   Detail::storeWord( view.newest(), sequence );
   ring_->changed = true;
   const uint64_t next = index + 1 == view.geometry.entries ? 0 : index + 1;
   Detail::prefetchForStore( view.base + view.geometry.offsetOf( next ),
                             view.geometry.stride() );
   return sequence;
}

bool RingWriter::repeat( uint64_t sequence, double at ) {
   const Detail::RingView& view = ring_->file.view;
   if ( sequence == 0 || sequence + view.geometry.entries <= ring_->newest )
      return false;
   RingSlot* const slot = view.slot( view.geometry.slotOf( sequence ) );
   Detail::storeWord( &slot->last, std::bit_cast<uint64_t>( at ) );
   Detail::storeWord( &slot->count, slot->count + 1 );
   ring_->changed = true;
   return true;
}

uint64_t RingWriter::newest() const {
   return ring_->newest;
}

void RingWriter::ring() {
   if ( ring_->changed ) ring_->changed = !ring_->seat.ring();
}

bool RingWriter::filesStand() const {
   return ring_->seat.stands() &&
          Detail::leadsTo( ring_->files.table, ring_->file.id );
}

void RingWriter::restoreFiles() {
   if ( filesStand() ) return;
   ring_->seat.restore();
   ring_->make( &ring_->file.view );
}

const Mox::String& RingWriter::problem() const {
   return ring_->problem;
}

}
