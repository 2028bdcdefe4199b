#include "platform/shm/detail/Instance.h"

#include <unistd.h>

#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Line.h"

namespace Brane::Detail {

namespace {

// Attempts to copy one record that the writer overtakes. To overtake one copy, the
// writer makes more writes than it has spare slots in its time.
constexpr uint32_t maxRetries = 64;
// This many contradictions in a row, without any change between, are damage.
constexpr uint32_t maxContradictions = 4;

FileHeader headerOf( int fd, uint64_t fileSize, const Layout& layout,
                     const Mox::String& path ) {
   std::byte bytes[sizeof( FileHeader )];
   ssize_t got = pread( fd, bytes, sizeof( bytes ), 0 );
   if ( got < 0 ) systemFailed( path, "cannot read" );
   FileHeader header = readHeader( bytes, uint64_t( got ), fileSize, path );
   checkRecord( header, layout, path );
   return header;
}

}

Instance::Instance( int fd, uint64_t fileSize, const Layout& layout,
                    const Mox::String& path )
   : Instance( fd, headerOf( fd, fileSize, layout, path ), path ) {}

Instance::Instance( int fd, const FileHeader& header, const Mox::String& path )
   : id_( header.instanceId ),
     limit_( header.limit ),
     mapping_( Mapping::ofFile( fd, header.fileSize, false, path ) ),
     view_{ mapping_.data(),
            geometryOf( header ),
            { header.seed[0], header.seed[1] } } {}

// One attempt. On true, copy.result is right if the index word still stands.
PIMSM_SHM_HOT bool Instance::copySlot( Copy& copy, void* out ) const {
   uint32_t slot = slotOf( copy.word );
   if ( slot >= geometry().slotCount ) return false;
   const SlotHead* head = view_.slot( slot );
   copy.stamp = loadWord( &head->stamp );
   if ( !stampFits( copy.stamp, copy.word ) ) return false;
   if ( stateOf( copy.stamp ) == slotRemoved ) {
      copy.result = lookupAbsent;
      return true;
   }
   if ( stateOf( copy.stamp ) != slotLive ) return false;
   copyOut( out, view_.record( slot ), geometry().recordSize );
   copy.checksum = loadWord( &head->checksum );
   // Bytes of another record are stored only after the stamp has changed.
   loadFence();
   copy.result = lookupFound;
   return loadWord( &head->stamp ) == copy.stamp;
}

PIMSM_SHM_HOT Instance::Copy Instance::copyWord( Position position, uint64_t word,
                                                 void* out ) const {
   Copy copy;
   copy.word = word;
   bool undisturbed =
      copySlot( copy, out ) && loadWord( view_.index() + position ) == word;
   return __builtin_expect( undisturbed, 1 ) ? copy : insist( position, word, out );
}

// The general case: repeats the copy up to the limits.
Instance::Copy Instance::insist( Position position, uint64_t word,
                                 void* out ) const {
   Copy copy;
   copy.word = word;
   copy.retries = 1;
   uint32_t contradictions = 0;
   while ( copy.word && copy.retries < maxRetries ) {
      bool done = copySlot( copy, out );
      word = loadWord( view_.index() + position );
      if ( word == copy.word ) {
         if ( done ) return copy;
         if ( ++contradictions == maxContradictions ) {
            copy.result = lookupDamaged;
            return copy;
         }
      } else {
         contradictions = 0;
      }
      copy.word = word;
      ++copy.retries;
   }
   copy.result = copy.word ? lookupBusy : lookupAbsent;
   return copy;
}

Instance::Copy Instance::copy( Position position, void* out ) const {
   return copyWord( position, loadWord( view_.index() + position ), out );
}

bool Instance::copyKey( uint64_t word, void* out ) const {
   uint32_t slot = slotOf( word );
   if ( slot >= geometry().slotCount ) return false;
   const SlotHead* head = view_.slot( slot );
   uint64_t stamp = loadWord( &head->stamp );
   if ( !stampFits( stamp, word ) || stateOf( stamp ) != slotLive ) return false;
   copyOut( out, view_.record( slot ), geometry().keySize );
   loadFence();
   return loadWord( &head->stamp ) == stamp;
}

Instance::Copy Instance::lookup( const void* key, uint64_t hash, void* out,
                                 Position* position ) const {
   uint32_t home = geometry().homeOf( hash );
   const uint32_t end = home + geometry().reach;
   const uint64_t tag = tagOf( hash );
   uint32_t retries = 0;
   for ( uint32_t line = home; line < end; ++line ) {
      const uint64_t* words = view_.index() + line * lineWords;
      for ( uint32_t found = wordsWith( words, tag ); found; ) {
         Position at = line * lineWords + takeFirst( found );
         uint64_t word = loadWord( view_.index() + at );
         if ( !hasTag( word, tag ) ) continue;
         Copy copy = copyWord( at, word, out );
         retries = copy.retries += retries;
         if ( copy.result == lookupAbsent ) continue;
         bool whole = copy.result == lookupFound;
         if ( whole && !sameBytes( out, key, geometry().keySize ) ) continue;
         if ( position ) *position = at;
         return copy;
      }
      if ( !loadWord( words + 7 ) ) break;
   }
   Copy none;
   none.retries = retries;
   return none;
}

void Instance::fetchLine( uint64_t hash ) const {
   auto* line = view_.index() + geometry().homeOf( hash ) * lineWords;
   prefetch( reinterpret_cast<const std::byte*>( line ), 1 );
}

void Instance::fetchSlots( uint64_t hash ) const {
   const uint64_t* words = view_.index() + geometry().homeOf( hash ) * lineWords;
   for ( uint32_t found = wordsWith( words, tagOf( hash ) ); found; ) {
      fetchSlot( loadWord( words + takeFirst( found ) ) );
   }
}

void Instance::fetchSlot( uint64_t word ) const {
   uint32_t slot = slotOf( word );
   if ( slot >= geometry().slotCount ) return;
   prefetch( view_.slotBytes( slot ), view_.slotSize() );
}

void Instance::fetchWord( Position position ) const {
   prefetch( reinterpret_cast<const std::byte*>( view_.index() + position ), 1 );
}

bool Instance::verify( Position position, const Copy& copy,
                       const void* record ) const {
   uint64_t hash = hashOf( record );
   RecordIdentity identity{ sequenceOf( copy.stamp ), slotOf( copy.word ), hash };
   return hasTag( copy.word, tagOf( hash ) ) &&
          geometry().reaches( hash, position ) &&
          copy.checksum ==
             recordChecksum( record, geometry().recordSize, identity );
}

uint64_t Instance::effectiveWord( Position position ) const {
   uint64_t word = loadWord( view_.index() + position );
   uint32_t slot = slotOf( word );
   if ( !word || slot >= geometry().slotCount ) return word;
   uint64_t stamp = loadWord( &view_.slot( slot )->stamp );
   bool gone = stateOf( stamp ) == slotRemoved && stampFits( stamp, word );
   return gone ? 0 : word;
}

}
