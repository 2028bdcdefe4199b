#include "platform/shm/detail/RingFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <bit>
#include <cstring>

#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

namespace {

uint32_t checksumOf( RingHeader header ) {
   header.ready = 0;
   header.checksum = 0;
   return crc32c( &header, sizeof( header ) );
}

[[noreturn]] void refuse( LayoutError::Mismatch mismatch, const Mox::String& path,
                          const Mox::String& text ) {
   throw LayoutError( mismatch, path + ": " + text );
}

}

void writeRingHeader( std::byte* base, RingHeader header ) {
   header.checksum = checksumOf( header );
   header.ready = 0;
   std::memcpy( base, &header, sizeof( header ) );
   storeFence();
   storeWord( reinterpret_cast<uint64_t*>( base + offsetof( RingHeader, ready ) ),
              readyWord );
}

RingHeader readRingHeader( const Descriptor& file, const Mox::String& path ) {
   RingHeader header;
   struct stat status;
   const ssize_t got = pread( file.get(), &header, sizeof( header ), 0 );
   if ( got < 0 || fstat( file.get(), &status ) != 0 )
      systemFailed( path, "cannot read" );
   if ( got != sizeof( header ) )
      refuse( LayoutError::tooShort, path,
              fmt::format( "{} bytes are no ring", got ) );
   if ( header.magic != ringMagic )
      refuse( LayoutError::magic, path,
              fmt::format( "{:#x} is no ring", header.magic ) );
   if ( header.byteOrder != byteOrderMark )
      refuse( LayoutError::byteOrder, path, "of the other byte order" );
   if ( header.version != ringVersion ) {
      refuse( LayoutError::formatVersion, path,
              fmt::format( "ring version {}, this program's is {}", header.version,
                           ringVersion ) );
   }
   if ( header.ready != readyWord )
      refuse( LayoutError::notReady, path,
              "its maker died before it was complete" );
   if ( header.checksum != checksumOf( header ) )
      refuse( LayoutError::checksum, path, "the header is damaged" );
   const RingGeometry geometry{ header.recordSize, header.entries };
   if ( header.entries == 0 || header.recordSize % 8 != 0 ||
        header.recordSize > Layout::maxRecordSize )
      refuse( LayoutError::geometry, path, "impossible sizes" );
   if ( uint64_t( status.st_size ) < geometry.fileSize() ) {
      refuse( LayoutError::tooShort, path,
              fmt::format( "{} bytes instead of {}", status.st_size,
                           geometry.fileSize() ) );
   }
   return header;
}

bool copyRingRecord( const RingView& view, uint64_t sequence, void* record,
                     RingCopy& copy ) {
   const uint64_t index = view.geometry.slotOf( sequence );
   RingSlot* const slot = view.slot( index );
   const uint64_t whole = sequence << 1 | 1;
   if ( loadWord( &slot->stamp ) != whole ) return false;
   const size_t size = view.geometry.recordSize;
   copyOut( record, view.record( index ), size );
   const uint64_t checksum = loadWord( &slot->checksum );
   copy.count = loadWord( &slot->count );
   copy.last = std::bit_cast<double>( loadWord( &slot->last ) );
   loadFence();
   if ( loadWord( &slot->stamp ) != whole ) return false;
   return checksum == recordChecksum( record, size, { sequence, index, 0 } );
}

}
