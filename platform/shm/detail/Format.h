// The bytes of a table file; drawn in doc/tables.md.
//
//    header | control | journal | index | slots
//
// formatVersion is bumped by any change of a struct or constant here, of the hash
// or of the checksum: readers then report a mismatch. A writer takes over what
// formatVersion - 1 wrote (FormerHeader, Geometry::former), and starts an empty
// instance in place of anything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/shm/Layout.h"

namespace Brane::Detail {

constexpr uint64_t magicWord = 0x6c626154656e6172;  // "raneTabl"
constexpr uint32_t formatVersion = 3;
constexpr uint32_t byteOrderMark = 0x01020304;
constexpr uint64_t readyWord = 0x7964616552656e61;  // "aneReady"

struct FieldEntry {
   char name[32];
   char type[32];
   uint32_t offset;
   uint32_t size;
};

// Written once, before the file has its name; constant afterwards but for `retired`.
// Only the fields in use are in the file.
struct FileHeader {
   uint64_t magic;
   uint32_t version;
   uint32_t byteOrder;
   uint64_t ready;  // readyWord, stored last
   uint32_t
      checksum;  // CRC32C with ready, checksum, retired and unused fields zero
   uint32_t keySize;
   uint32_t recordSize;
   uint32_t capacity;  // of this instance
   uint64_t fingerprint;
   uint64_t instanceId;  // random
   uint64_t seed[2];     // of the hash
   uint64_t fileSize;
   uint32_t journalEntries;
   uint32_t fieldCount;
   char bootId[40];
   uint64_t retired;  // retiredWord once no table, or another instance, is there
   uint32_t limit;    // instances grow up to this capacity
   uint32_t reserved;
   FieldEntry fields[Layout::maxFields];
};
static_assert( std::is_trivially_copyable_v<FileHeader> );
static_assert( offsetof( FileHeader, ready ) == 16 );
static_assert( offsetof( FileHeader, retired ) == 128 );
static_assert( offsetof( FileHeader, fields ) == 144 );
constexpr uint32_t headerSize( uint32_t fieldCount ) {
   return offsetof( FileHeader, fields ) + fieldCount * sizeof( FieldEntry );
}

constexpr uint64_t retiredWord = 0x6465726974655242;  // "BRetired"

// The journal's head, the sequence of the last published change, stands behind the
// header. A cache line pair of its own, since all readers look at it.
constexpr uint32_t controlSize = 128;

// Format version 2: all 64 fields, no growth, sizes that did not depend on the
// capacity.
constexpr uint32_t formerVersion = 2;
constexpr uint32_t formerFieldsOffset = 128;
constexpr uint32_t formerHeaderSize =
   formerFieldsOffset + Layout::maxFields * sizeof( FieldEntry );
constexpr uint32_t formerControlOffset = 8192;
constexpr uint32_t formerRetiredOffset = formerControlOffset + 8;

// A journal entry names the position that the change of a sequence concerns.
constexpr uint64_t journalEntry( Position position, uint64_t sequence ) {
   return uint64_t( position ) << 32 | ( sequence & 0xffffffff );
}
constexpr Position positionOfEntry( uint64_t entry ) {
   return entry >> 32;
}
constexpr bool entryIsOf( uint64_t entry, uint64_t sequence ) {
   return ( entry & 0xffffffff ) == ( sequence & 0xffffffff );
}

// A line of the index: seven words and the number of keys that passed it by.
// Position 8 * line + i is word i; i = 7 is the count, never a position.
constexpr uint32_t lineWords = 8;
constexpr uint32_t wordsPerLine = 7;
constexpr bool isWord( Position position ) {
   return position % lineWords != 7;
}

// A key stands at most this many lines from home, its own included. Small tables
// have fewer lines.
constexpr uint32_t probeLimit = 32;

// An index word: slot + 1 (24 bits), generation (28), tag of the hash (12, never
// zero). Zero: free. The generation is the low part of the record's sequence, so
// that each write of a key gives another word.
constexpr uint32_t maxSlots = ( 1u << 24 ) - 2;
constexpr uint64_t generationMask = ( 1u << 28 ) - 1;
constexpr uint64_t tagMask = 0xfff;

constexpr uint64_t tagOf( uint64_t hash ) {
   uint64_t tag = hash & tagMask;
   return tag ? tag : 1;
}
constexpr uint64_t generationOf( uint64_t word ) {
   return ( word >> 12 ) & generationMask;
}
constexpr bool hasTag( uint64_t word, uint64_t tag ) {
   return ( word & tagMask ) == tag;
}
constexpr uint64_t indexWord( uint32_t slot, uint64_t hash, uint64_t sequence ) {
   return uint64_t( slot + 1 ) << 40 | ( sequence & generationMask ) << 12 |
          tagOf( hash );
}
// 2^32 - 1 for a word of slot 0 - 1: beyond any table.
constexpr uint32_t slotOf( uint64_t word ) {
   return uint32_t( word >> 40 ) - 1;
}

// A slot's stamp: sequence (61 bits) and state.
enum SlotState : uint64_t {
   slotFree,
   slotWriting,   // being filled
   slotLive,      // whole; current when the index says so
   slotReplaced,  // a newer record of its key stands in the index
   slotRemoved,   // its key is gone, whatever the index says
};
constexpr uint64_t stampOf( uint64_t sequence, SlotState state ) {
   return sequence << 3 | state;
}
constexpr SlotState stateOf( uint64_t stamp ) {
   return SlotState( stamp & 7 );
}
constexpr uint64_t sequenceOf( uint64_t stamp ) {
   return stamp >> 3;
}
// Was the slot written when the index word was?
constexpr bool stampFits( uint64_t stamp, uint64_t word ) {
   return ( sequenceOf( stamp ) & generationMask ) == generationOf( word );
}
// A larger sequence is damage: it would soon wrap.
constexpr uint64_t maxSequence = uint64_t( 1 ) << 60;

// In front of the record, in the same cache line as its first 48 bytes.
struct SlotHead {
   uint64_t stamp;
   uint64_t checksum;  // CRC32C over sequence, slot, key hash and record
};
static_assert( sizeof( SlotHead ) == 16 );

// Extra slots beyond the capacity, a quarter of it between these. With them a full
// table can still replace records, and a slot rests for that many writes, which
// spares readers a retry.
constexpr uint32_t leastSpareSlots = 8;
constexpr uint32_t mostSpareSlots = 64;
constexpr uint32_t maxReservations = 16;

}
