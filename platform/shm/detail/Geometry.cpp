#include "platform/shm/detail/Geometry.h"

#include <algorithm>
#include <bit>

namespace Brane::Detail {

namespace {

constexpr uint64_t rounded( uint64_t size, uint64_t unit ) {
   return ( size + unit - 1 ) / unit * unit;
}

}

Geometry Geometry::of( uint32_t keySize, uint32_t recordSize, uint32_t fieldCount,
                       uint32_t capacity, uint32_t journalEntries ) {
   Geometry g;
   g.keySize = keySize;
   g.recordSize = recordSize;
   g.capacity = capacity;
   g.journalEntries = journalEntries;
   g.spareSlots = std::clamp( capacity / 4, leastSpareSlots, mostSpareSlots );
   // A table of few keys has place for all of them within reach of any home.
   g.reach =
      std::clamp( ( capacity + wordsPerLine - 1 ) / wordsPerLine, 1u, probeLimit );
   g.place( rounded( headerSize( fieldCount ), controlSize ), 64 );
   return g;
}

Geometry Geometry::former( uint32_t keySize, uint32_t recordSize, uint32_t capacity,
                           uint32_t journalEntries ) {
   Geometry g;
   g.keySize = keySize;
   g.recordSize = recordSize;
   g.capacity = capacity;
   g.journalEntries = journalEntries;
   g.spareSlots = 64;
   g.reach = 32;
   g.place( formerControlOffset, 4096 );
   return g;
}

// Computes what is common to both versions.
void Geometry::place( uint64_t control, uint64_t slotAlignment ) {
   slotCount = capacity + spareSlots;
   slotStride = uint32_t( rounded( sizeof( SlotHead ) + recordSize, 64 ) );
   // At most 60 % of the words in use: 7 * 0.6 = 4.2 keys a line.
   homeLines = uint32_t( ( uint64_t( capacity ) * 10 + 41 ) / 42 );
   homeLines = std::max( homeLines, 1u );
   lineCount = homeLines + reach - 1;
   controlOffset = control;
   journalOffset = controlOffset + controlSize;
   indexOffset = rounded( journalOffset + uint64_t( journalEntries ) * 8, 64 );
   slotsOffset = rounded( indexOffset + uint64_t( lineCount ) * 64, slotAlignment );
   fileSize = rounded( slotsOffset + uint64_t( slotCount ) * slotStride, 4096 );
}

uint32_t Geometry::defaultJournalEntries( uint32_t capacity ) {
   return std::bit_ceil( std::clamp( capacity, 16u, 65536u ) );
}

uint32_t Geometry::firstCapacity( const Layout& layout ) {
   auto sizeFor = [&]( uint32_t records ) {
      return of( layout.keySize, layout.recordSize,
                 uint32_t( layout.fields.size() ), records,
                 defaultJournalEntries( records ) )
         .fileSize;
   };
   uint32_t records = 4;
   while ( sizeFor( 2 * records ) == sizeFor( 4 ) ) records *= 2;
   return records;
}

}
