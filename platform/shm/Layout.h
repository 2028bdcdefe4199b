// The layout of a table's records: the same description for writer and reader.
//
// A record is a flat run of bytes that means the same in every process. It begins
// with its key; bytes between fields must be zero, since keys compare and hash as
// bytes. Two programs fit together when their fingerprints agree.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

// One field of the record. Name and type are texts of 1 to 31 bytes; a type's text
// changes whenever the meaning of its bytes does.
struct Field {
   Mox::String name;
   Mox::String type;
   uint32_t offset = 0;  // bytes from the record's start
   uint32_t size = 0;    // bytes

   bool operator==( const Field& ) const = default;
};

// REQUIRES (checked where a table is opened, with a Mox::RangeError): keySize and
// recordSize are multiples of 8, 8 <= keySize <= recordSize <= maxRecordSize; at
// most maxFields fields, each inside the record, of distinct names, and none
// lies astride the key's end.
struct PIMSM_API Layout {
   static constexpr uint32_t maxFields = 64;
   static constexpr uint32_t maxRecordSize = 16384;
   static constexpr uint32_t maxTextSize = 31;

   uint32_t keySize = 0;
   uint32_t recordSize = 0;
   std::vector<Field> fields;

   // Computed over the sizes and every field, in order.
   uint64_t fingerprint() const;
   // Throws Mox::RangeError naming the first rule broken.
   void check() const;
   // Do the two agree in the key's size and its fields?
   bool sameKey( const Layout& other ) const;

   bool operator==( const Layout& ) const = default;
};

// A key's place in a table's index. Stable while the key stands, then free for
// another key. Positions order the iteration.
using Position = uint32_t;
constexpr Position noPosition = ~Position( 0 );

}
