#include "platform/shm/detail/Geometry.h"

#include <algorithm>
#include <bit>

namespace Brane::Detail {

namespace {

constexpr uint64_t rounded( uint64_t size, uint64_t unit ) {
   return ( size + unit - 1 ) / unit * unit;
}

}

Geometry Geometry::of( uint32_t keySize, uint32_t recordSize, uint32_t capacity,
                       uint32_t journalEntries ) {
   Geometry g;
   g.keySize = keySize;
   g.recordSize = recordSize;
   g.capacity = capacity;
   g.journalEntries = journalEntries;
   g.slotCount = capacity + spareSlots;
   g.slotStride = uint32_t( rounded( sizeof( SlotHead ) + recordSize, 64 ) );
   // At most 60 % of the words in use: 7 * 0.6 = 4.2 keys a line.
   g.homeLines = uint32_t( ( uint64_t( capacity ) * 10 + 41 ) / 42 );
   g.homeLines = std::max( g.homeLines, 1u );
   g.lineCount = g.homeLines + probeLimit - 1;
   g.indexOffset = rounded( journalOffset + uint64_t( journalEntries ) * 8, 64 );
   g.slotsOffset = rounded( g.indexOffset + uint64_t( g.lineCount ) * 64, 4096 );
   g.fileSize =
      rounded( g.slotsOffset + uint64_t( g.slotCount ) * g.slotStride, 4096 );
   return g;
}

uint32_t Geometry::defaultJournalEntries( uint32_t capacity ) {
   return std::bit_ceil( std::clamp( capacity, 1024u, 65536u ) );
}

}
