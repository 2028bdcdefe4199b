// The bytes of a ring's file: header | newest | slots. No offset is read from it.
//
// A record is written in this order: the slot's stamp (sequence, not whole), record
// and checksum, the stamp (whole), the newest sequence. A kill before the second
// stamp leaves a slot that readers skip and the next writer fills anew, under the
// same sequence; a kill after it leaves a whole record, which the next writer counts
// as the newest. A repeated record's count and time are words of their own outside
// the checksum, each stored at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/shm/Layout.h"
#include "platform/shm/detail/Mapping.h"

namespace Brane::Detail {

constexpr uint64_t ringMagic = 0x676e6952656e6172;  // "raneRing"
constexpr uint32_t ringVersion = 1;

// Written once, before the file has its name.
struct RingHeader {
   uint64_t magic;
   uint32_t version;
   uint32_t byteOrder;
   uint64_t ready;     // readyWord, stored last
   uint32_t checksum;  // CRC32C with ready and checksum zero
   uint32_t recordSize;
   uint32_t entries;
   uint32_t unused;
   uint64_t fingerprint;
   uint64_t instanceId;  // random
   char bootId[40];
};
static_assert( std::is_trivially_copyable_v<RingHeader> );

struct RingSlot {
   uint64_t stamp;     // sequence << 1, and 1: whole
   uint64_t checksum;  // over sequence, slot and record
   uint64_t count;
   uint64_t last;  // a double's bits
};

// Where things are in the file.
struct RingGeometry {
   static constexpr uint64_t newestOffset = 128;
   static constexpr uint64_t slotsOffset = 256;

   uint32_t recordSize = 0;
   uint32_t entries = 0;

   uint64_t stride() const {
      return ( sizeof( RingSlot ) + recordSize + 63 ) / 64 * 64;
   }
   uint64_t fileSize() const { return slotsOffset + entries * stride(); }
   // Sequences begin with 1.
   uint64_t slotOf( uint64_t sequence ) const { return sequence % entries; }
   uint64_t offsetOf( uint64_t slot ) const {
      return slotsOffset + slot * stride();
   }
};
static_assert( sizeof( RingHeader ) <= RingGeometry::newestOffset );

// A mapped ring.
struct RingView {
   std::byte* base = nullptr;
   RingGeometry geometry;

   uint64_t* newest() const {
      return reinterpret_cast<uint64_t*>( base + RingGeometry::newestOffset );
   }
   RingSlot* slot( uint64_t index ) const {
      return reinterpret_cast<RingSlot*>( base + geometry.offsetOf( index ) );
   }
   std::byte* record( uint64_t index ) const {
      return reinterpret_cast<std::byte*>( slot( index ) + 1 );
   }
};

void writeRingHeader( std::byte* base, RingHeader header );
// Reads and checks the header of an open file. Throws LayoutError, whose texts begin
// with `path`.
RingHeader readRingHeader( const Descriptor& file, const Mox::String& path );

// Copies a slot's record and checks it. Returns false unless it holds that sequence,
// whole.
struct RingCopy {
   uint64_t count = 0;
   double last = 0;
};
bool copyRingRecord( const RingView& view, uint64_t sequence, void* record,
                     RingCopy& copy );

}
