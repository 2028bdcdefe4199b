// CRC32C by the processor's instruction, or by table with the same values.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Brane::Detail {

// Plain CRC32C (RFC 3720 section 12.1) of the bytes.
uint32_t crc32c( const void* data, size_t size );

// Binds a record to its place: its checksum fails in another slot, at another time
// or under another hash.
struct RecordIdentity {
   uint64_t sequence = 0;
   uint64_t slot = 0;
   uint64_t hash = 0;
};

// A record's checksum: CRC32C in four lanes, word i in lane i mod 4, so that the
// processor works on all at once; the lanes start with the identity and end in one
// value. Size is a multiple of 8.
uint32_t recordChecksum( const void* record, size_t size,
                         const RecordIdentity& identity );

// The same, while the record is stored to shared memory at `to` (aligned to 16).
uint32_t storeRecord( std::byte* to, const void* record, size_t size,
                      const RecordIdentity& identity );

// For tests: forces or stops forcing the portable way.
void portableChecksumIs( bool portable );

}
