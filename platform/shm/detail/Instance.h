// One attached instance of a table, as a reader sees it.
//
// The copy protocol: load the index word, the slot's stamp, copy, load stamp and
// word again. Unchanged, the copy is whole and was current. The word changed: the
// writer was faster, go on with the new one, a bounded number of times. Word and
// stamp stand still and contradict each other: damage.
//
// A key that stands is found: it never moves, its index word never is zero, and the
// passed counts of the lines before it never are zero while it stands. A look-up
// that ends with "absent" saw each place at a moment when the key was not there; a
// key that was taken out and put in again meanwhile was absent in between.
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
   // Takes over an open file. Throws LayoutError (also of another record) and
   // CreateError.
   Instance( int fd, uint64_t fileSize, const Layout& layout,
             const Mox::String& path );

   // What one copy found, and the work it took.
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

   // The key alone, for a hint: false when it is not to be had at once.
   bool copyKey( uint64_t word, void* out ) const;

   uint64_t hashOf( const void* key ) const {
      return keyHash( key, geometry().keySize, view_.seed );
   }
   void fetchLine( uint64_t hash ) const;
   void fetchSlots( uint64_t hash ) const;
   void fetchSlot( uint64_t word ) const;
   // Does the copied record belong there and is its checksum right?
   bool verify( Position position, const Copy& copy, const void* record ) const;

   // The index word, zero if its slot says that the key is gone: what a writer left
   // that was killed in the middle of a removal.
   uint64_t effectiveWord( Position position ) const;

   const ConstView& view() const { return view_; }
   const Geometry& geometry() const { return view_.geometry; }
   uint64_t id() const { return header_.instanceId; }
   uint64_t head() const { return loadWord( view_.head() ); }

 private:
   Copy copyWord( Position position, uint64_t word, void* out ) const;
   Copy insist( Position position, uint64_t word, void* out ) const;
   bool copySlot( Copy& copy, void* out ) const;

   FileHeader header_;
   Mapping mapping_;
   ConstView view_;
};

}
