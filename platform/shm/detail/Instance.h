// One attached instance of a table, as a reader sees it.
//
// The copy protocol: load the index word, the slot's stamp, copy, load stamp and
// word again. When both are unchanged, the copy is whole and was current. When the
// word changed, the writer was faster: repeat with the new word, a bounded number
// of times. When word and stamp stay the same and contradict each other, the record
// is damaged.
//
// A standing key is always found: it never moves, and neither its index word nor
// the passed counts of the lines before it are zero. A look-up that ends with
// "absent" saw each place while the key was not there; a key that was taken out and
// put in again meanwhile was absent in between.
#pragma once

#include <memory>
#include <span>

#include "platform/shm/TableReader.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Header.h"
#include "platform/shm/detail/Mapping.h"

namespace Brane::Detail {

class Instance {
 public:
   // Takes over an open file. Throws LayoutError, also for another record's table,
   // and CreateError.
   Instance( int fd, uint64_t fileSize, const Layout& layout,
             const Mox::String& path );

   // The result of one copy and its retries.
   struct Copy {
      Lookup result = lookupAbsent;
      uint32_t retries = 0;
      uint64_t word = 0;
      uint64_t stamp = 0;
      uint64_t checksum = 0;
   };
   Copy lookup( const void* key, uint64_t hash, void* out,
                Position* position ) const;
   // REQUIRES: a position of the index.
   Copy copy( Position position, void* out ) const;

   // Copies the key alone, for a hint; false when that fails at once.
   bool copyKey( uint64_t word, void* out ) const;

   uint64_t hashOf( const void* key ) const {
      return keyHash( key, geometry().keySize, view_.seed );
   }
   void fetchLine( uint64_t hash ) const;
   void fetchSlots( uint64_t hash ) const;
   void fetchSlot( uint64_t word ) const;
   void fetchWord( Position position ) const;
   // REQUIRES: a position of this instance.
   uint64_t wordAt( Position position ) const {
      return loadWord( view_.index() + position );
   }
   // Does the copied record belong to the position, and is its checksum right?
   bool verify( Position position, const Copy& copy, const void* record ) const;

   // The index word, or zero if its slot says that the key is gone. A writer killed
   // in the middle of a removal leaves such a word.
   uint64_t effectiveWord( Position position ) const;

   const ConstView& view() const { return view_; }
   const Geometry& geometry() const { return view_.geometry; }
   uint64_t id() const { return id_; }
   uint32_t limit() const { return limit_; }
   uint64_t head() const { return loadWord( view_.head() ); }

 private:
   Copy copyWord( Position position, uint64_t word, void* out ) const;
   Copy insist( Position position, uint64_t word, void* out ) const;
   bool copySlot( Copy& copy, void* out ) const;

   Instance( int fd, const FileHeader& header, const Mox::String& path );

   uint64_t id_;
   uint32_t limit_;
   Mapping mapping_;
   ConstView view_;
};

}
