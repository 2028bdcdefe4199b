// The offsets of all parts of a table file, computed from five numbers: no offset
// is read from the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

struct Geometry {
   uint32_t keySize = 0;
   uint32_t recordSize = 0;
   uint32_t capacity = 0;
   uint32_t journalEntries = 0;
   uint32_t slotCount = 0;
   uint32_t slotStride = 0;
   uint32_t spareSlots = 0;
   uint32_t homeLines = 0;  // lines that a hash can choose
   uint32_t reach = 0;      // lines from home, its own included, where a key can be
   uint32_t lineCount = 0;  // with those that only probing reaches: no wrapping
   uint64_t controlOffset = 0;
   uint64_t journalOffset = 0;
   uint64_t indexOffset = 0;
   uint64_t slotsOffset = 0;
   uint64_t fileSize = 0;

   // REQUIRES: sizes that Layout::check() accepts, a capacity up to maxCapacity(),
   // a power of two of journal entries.
   static Geometry of( uint32_t keySize, uint32_t recordSize, uint32_t fieldCount,
                       uint32_t capacity, uint32_t journalEntries );
   // That of format version 2.
   static Geometry former( uint32_t keySize, uint32_t recordSize, uint32_t capacity,
                           uint32_t journalEntries );
   static constexpr uint32_t maxCapacity() { return maxSlots - mostSpareSlots; }
   // Few enough to stay in a cache, many enough for a burst.
   static uint32_t defaultJournalEntries( uint32_t capacity );
   // That of a new table's first instance: what a page holds, a few records at
   // least.
   static uint32_t firstCapacity( const Layout& layout );

   Position positions() const { return lineCount * lineWords; }
   uint32_t homeOf( uint64_t hash ) const {
      return uint32_t( ( static_cast<Wide>( hash ) * homeLines ) >> 64 );
   }
   // Can a key of this hash stand at the position?
   bool reaches( uint64_t hash, Position position ) const {
      return position / lineWords - homeOf( hash ) < reach;
   }

 private:
   void place( uint64_t control, uint64_t slotAlignment );
};

// A mapped table; Byte is const for readers.
template <class Byte>
struct View {
   using Word = std::conditional_t<std::is_const_v<Byte>, const uint64_t, uint64_t>;
   using Head = std::conditional_t<std::is_const_v<Byte>, const SlotHead, SlotHead>;

   Byte* base = nullptr;
   Geometry geometry;
   uint64_t seed[2] = {};

   Word* head() const { return wordAtOffset( geometry.controlOffset ); }
   Word* retired() const { return wordAtOffset( offsetof( FileHeader, retired ) ); }
   Word* journal( uint64_t sequence ) const {
      return wordAtOffset( geometry.journalOffset ) +
             ( sequence & ( geometry.journalEntries - 1 ) );
   }
   Word* index() const { return wordAtOffset( geometry.indexOffset ); }
   Word* passed( uint32_t line ) const { return index() + line * lineWords + 7; }
   Byte* slotBytes( uint32_t slot ) const {
      return base + geometry.slotsOffset + uint64_t( slot ) * geometry.slotStride;
   }
   Head* slot( uint32_t number ) const {
      return reinterpret_cast<Head*>( slotBytes( number ) );
   }
   Byte* record( uint32_t slot ) const {
      return slotBytes( slot ) + sizeof( SlotHead );
   }
   // Number of bytes that a slot uses.
   size_t slotSize() const { return sizeof( SlotHead ) + geometry.recordSize; }

   operator View<const std::byte>() const {
      return { base, geometry, { seed[0], seed[1] } };
   }

 private:
   Word* wordAtOffset( uint64_t offset ) const {
      return reinterpret_cast<Word*>( base + offset );
   }
};
using ConstView = View<const std::byte>;

}
