#include "platform/shm/detail/Header.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>

#include "platform/shm/detail/Checksum.h"

namespace Brane::Detail {

namespace {

uint32_t usedFields( const FileHeader& header ) {
   return header.fieldCount <= Layout::maxFields ? header.fieldCount : 0;
}

uint32_t checksumOf( FileHeader header ) {
   header.ready = 0;
   header.checksum = 0;
   header.retired = 0;
   return crc32c( &header, sizeof( header ) );
}

// What a header of format version 2 says in this version's form.
FileHeader fromFormer( const std::byte* base ) {
   FileHeader h{};
   std::memcpy( &h, base, formerFieldsOffset );
   std::memcpy( h.fields, base + formerFieldsOffset, sizeof( h.fields ) );
   h.limit = h.capacity;
   return h;
}

uint32_t formerChecksum( const std::byte* base ) {
   std::byte bytes[formerHeaderSize];
   std::memcpy( bytes, base, sizeof( bytes ) );
   std::memset( bytes + offsetof( FileHeader, ready ), 0, sizeof( uint64_t ) );
   std::memset( bytes + offsetof( FileHeader, checksum ), 0, sizeof( uint32_t ) );
   return crc32c( bytes, sizeof( bytes ) );
}

template <size_t size>
void setText( char ( &to )[size], const Mox::String& text ) {
   std::memcpy( to, text.data(), std::min( text.size(), size - 1 ) );
}

template <size_t size>
Mox::String textOf( const char ( &from )[size] ) {
   return Mox::String( from, strnlen( from, size ) );
}

[[noreturn]] void refuse( LayoutError::Mismatch mismatch, const Mox::String& path,
                          const Mox::String& text ) {
   throw LayoutError( mismatch, path + ": " + text );
}

void checkGeometry( const FileHeader& h, uint64_t fileSize,
                    const Mox::String& path ) {
   bool sound =
      h.keySize % 8 == 0 && h.recordSize % 8 == 0 && h.keySize >= 8 &&
      h.keySize <= h.recordSize && h.recordSize <= Layout::maxRecordSize &&
      h.capacity <= Geometry::maxCapacity() && h.limit <= Geometry::maxCapacity() &&
      std::has_single_bit( h.journalEntries ) && h.journalEntries <= 1u << 24 &&
      h.fieldCount <= Layout::maxFields;
   if ( !sound )
      refuse( LayoutError::geometry, path,
              "the header's sizes contradict each other" );
   uint64_t expected = geometryOf( h ).fileSize;
   if ( h.fileSize != expected ) {
      refuse( LayoutError::geometry, path,
              fmt::format( "the header says {} bytes, its sizes give {}",
                           h.fileSize, expected ) );
   }
   if ( fileSize < expected ) {
      refuse(
         LayoutError::tooShort, path,
         fmt::format( "{} bytes long, its header says {}", fileSize, expected ) );
   }
}

// The fields decide how records are copied to another layout.
void checkFields( const FileHeader& h, const Mox::String& path ) {
   try {
      layoutOf( h ).check();
   } catch ( const Mox::RangeError& e ) {
      refuse( LayoutError::geometry, path, e.what() );
   }
}

}

void writeHeader( std::byte* base, const Layout& layout,
                  const HeaderValues& values ) {
   FileHeader h{};
   h.magic = magicWord;
   h.version = formatVersion;
   h.byteOrder = byteOrderMark;
   h.keySize = layout.keySize;
   h.recordSize = layout.recordSize;
   h.capacity = values.capacity;
   h.limit = values.limit;
   h.fingerprint = layout.fingerprint();
   h.instanceId = values.instanceId;
   std::copy( values.seed, values.seed + 2, h.seed );
   h.journalEntries = values.journalEntries;
   h.fieldCount = uint32_t( layout.fields.size() );
   h.fileSize = geometryOf( h ).fileSize;
   setText( h.bootId, values.bootId );
   for ( uint32_t i = 0; i < h.fieldCount; ++i ) {
      setText( h.fields[i].name, layout.fields[i].name );
      setText( h.fields[i].type, layout.fields[i].type );
      h.fields[i].offset = layout.fields[i].offset;
      h.fields[i].size = layout.fields[i].size;
   }
   h.checksum = checksumOf( h );
   for ( size_t at = 0; at < headerSize( h.fieldCount ); at += 8 ) {
      storeWord( reinterpret_cast<uint64_t*>( base + at ), wordAt( &h, at / 8 ) );
   }
}

void markReady( std::byte* base ) {
   storeWord( reinterpret_cast<uint64_t*>( base + offsetof( FileHeader, ready ) ),
              readyWord );
}

FileHeader readHeader( const std::byte* base, uint64_t available, uint64_t fileSize,
                       const Mox::String& path, bool orFormer ) {
   FileHeader h{};
   auto require = [&]( uint64_t size ) {
      if ( available >= size ) return;
      refuse( LayoutError::tooShort, path,
              fmt::format( "{} bytes long, a header has {}", fileSize, size ) );
   };
   auto differ = [&path]( LayoutError::Mismatch mismatch, const char* what,
                          uint64_t found, uint64_t expected ) {
      if ( found == expected ) return;
      refuse( mismatch, path,
              fmt::format( "{} is {:#x}, expected {:#x}", what, found, expected ) );
   };
   require( headerSize( 0 ) );
   std::memcpy( &h, base, headerSize( 0 ) );
   differ( LayoutError::magic, "the magic word", h.magic, magicWord );
   differ( LayoutError::byteOrder, "the byte order mark", h.byteOrder,
           byteOrderMark );
   const bool former = orFormer && h.version == formerVersion;
   if ( !former )
      differ( LayoutError::formatVersion, "the format version", h.version,
              formatVersion );
   require( former ? formerHeaderSize : headerSize( usedFields( h ) ) );
   if ( former ) {
      h = fromFormer( base );
   } else {
      std::memcpy( &h, base, headerSize( usedFields( h ) ) );
   }
   differ( LayoutError::notReady, "the ready word", h.ready, readyWord );
   differ( LayoutError::checksum, "the header's checksum", h.checksum,
           former ? formerChecksum( base ) : checksumOf( h ) );
   checkGeometry( h, fileSize, path );
   checkFields( h, path );
   return h;
}

void checkRecord( const FileHeader& header, const Layout& layout,
                  const Mox::String& path ) {
   auto differ = [&path]( LayoutError::Mismatch mismatch, const char* what,
                          uint64_t found, uint64_t expected ) {
      if ( found == expected ) return;
      refuse(
         mismatch, path,
         fmt::format( "{} is {}, this program's is {}", what, found, expected ) );
   };
   differ( LayoutError::keySize, "the key's size", header.keySize, layout.keySize );
   differ( LayoutError::recordSize, "the record's size", header.recordSize,
           layout.recordSize );
   differ( LayoutError::fingerprint, "the layout's fingerprint", header.fingerprint,
           layout.fingerprint() );
}

Geometry geometryOf( const FileHeader& h ) {
   if ( h.version == formerVersion )
      return Geometry::former( h.keySize, h.recordSize, h.capacity,
                               h.journalEntries );
   return Geometry::of( h.keySize, h.recordSize, h.fieldCount, h.capacity,
                        h.journalEntries );
}

Layout layoutOf( const FileHeader& header ) {
   Layout layout;
   layout.keySize = header.keySize;
   layout.recordSize = header.recordSize;
   for ( uint32_t i = 0; i < header.fieldCount; ++i ) {
      const FieldEntry& entry = header.fields[i];
      layout.fields.push_back(
         { textOf( entry.name ), textOf( entry.type ), entry.offset, entry.size } );
   }
   return layout;
}

Mox::String bootIdOf( const FileHeader& header ) {
   return textOf( header.bootId );
}

Mox::String runningBootId() {
   std::ifstream file( "/proc/sys/kernel/random/boot_id" );
   Mox::String id;
   std::getline( file, id );
   return id;
}

uint64_t randomWord() {
   uint64_t word = 0;
   // Waits until the kernel's pool is filled; after that 8 bytes cannot fail.
   while ( getrandom( &word, sizeof( word ), 0 ) != sizeof( word ) ) continue;
   return word;
}

}
