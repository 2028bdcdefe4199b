// The one writer of a table of fixed-size records in shared memory.
//
// The table lives in a file that outlives the writer: opening it again finds the
// records that were there, whole, whatever killed the former writer. Readers in
// other processes see each put and remove at once and as a whole; they hear of it
// at the next ring().
//
// The file starts small and grows with the records, up to the capacity: a put that
// needs room makes another instance with the same records, of twice the size, and
// readers move there with their next look-up, visit or poll.
//
// A record is recordSize bytes that begin with the key (see Layout.h). The all-zero
// key is not a record. Owner's thread only. Destroying the writer leaves the table
// standing and rings the readers.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/shm/AttachReport.h"
#include "platform/shm/Error.h"
#include "platform/shm/Layout.h"
#include "platform/shm/WriterSeat.h"

namespace Brane {

namespace Detail {
class WriterTable;
}

// Settings for tests and special tables; the defaults suit all others.
struct WriterOptions {
   // The seed of a new file's hash; random when absent.
   std::optional<std::array<uint64_t, 2>> seed;
   // The id of the running boot; the kernel's when empty. At most 39 bytes.
   Mox::String bootId;
   // Length of the change journal, a power of two; 0 chooses it by the capacity.
   uint32_t journalEntries = 0;
   // Accept the all-zero key as a key like any other.
   bool zeroKey = false;
   // Makes a new file large enough for that many records; 0: for a few.
   uint32_t firstCapacity = 0;
   // A table of that many records or more makes its next instance in parts, with each
   // key after seven eighths of its room; a smaller one at once, when it is full.
   uint32_t growsAheadFrom = 4096;
   // The lock and bell that the table shares with others; null: its own. Lock and
   // bell that it had of its own, as a former version's tables did, are removed.
   std::shared_ptr<WriterSeat> seat = nullptr;
   // Sequence that a new file starts from.
   uint64_t firstSequence = 0;
   // The initial bytes of a record taken over from another layout: fields missing
   // there keep these values. recordSize bytes, or empty for zeros.
   std::vector<std::byte> fresh;
};

// Result of a verifying sweep.
struct Sweep {
   uint32_t verified = 0;  // records whose checksum and place in the index hold
   uint32_t damaged = 0;
   std::vector<Mox::String> texts;  // one line a damage, at most 32
};

class Reservation;
class TableCursor;

class PIMSM_API TableWriter {
 public:
   // Creates the table, or takes it over with what it holds; `capacity` is raised
   // to the number of survivors. The path's directory must exist. Throws
   // SecondWriterError, CreateError, Mox::RangeError (layout, options).
   // The layout may be shared with other tables. REQUIRES: not null.
   TableWriter( const Mox::String& path, std::shared_ptr<const Layout> layout,
                uint32_t capacity, const WriterOptions& options = {} );
   TableWriter( const Mox::String& path, const Layout& layout, uint32_t capacity,
                const WriterOptions& options = {} )
      : TableWriter( path, std::make_shared<const Layout>( layout ), capacity,
                     options ) {}
   ~TableWriter();
   TableWriter( const TableWriter& ) = delete;
   TableWriter& operator=( const TableWriter& ) = delete;

   // Writes or replaces the record under its key and returns the key's position.
   // `hint` is a position returned for this key before; a stale one only costs
   // time. Throws TableFullError, NoSpaceError, ProbeLimitError, CorruptionError or
   // Mox::RangeError (zero key); the table is then unchanged. The record must not lie in
   // the table itself, which may go with the put.
   Position put( const void* record, Position hint = noPosition );

   // Writes many records as put() does, and fetches the needed memory ahead.
   // `position` is hint and result. Stops with put()'s exception at the first item
   // that fails: items before it are written, that one and later ones are not.
   struct PutItem {
      const void* record = nullptr;
      Position position = noPosition;
   };
   void put( std::span<PutItem> items );

   // Writing in place: free memory for one record, not zeroed; see Reservation.
   // REQUIRES: at most 16 reservations at a time. Throws NoSpaceError.
   Reservation reserve();

   // Removes the key's record. Returns false when there is none. `removed`, when
   // not null, gets a copy of the record (recordSize bytes).
   bool remove( const void* key, void* removed = nullptr,
                Position hint = noPosition );

   // The record in the table, null when there is none. Valid until the next put,
   // reserve or remove of any key.
   const void* find( const void* key, Position hint = noPosition ) const;
   const void* at( Position position ) const;  // null: nothing stands there

   // Iterates in order of positions. From noPosition: the first; returns noPosition
   // at the end. Records that stand throughout are met once; records put meanwhile
   // may be missed. Positions are those of one instance: see instanceId(), and
   // TableCursor.h for a visit during which the table may grow.
   Position next( Position after = noPosition ) const;
   // Where to resume when only a key was kept: its position while it stands,
   // otherwise a place at or before its former one. Nothing is missed; a few
   // records may come again. The result may be empty: read it with at(), continue
   // with next().
   Position positionAtOrBefore( const void* key ) const;

   // Tells readers that something has changed since the last ring; does nothing
   // otherwise. Once a batch, not once a record: it is a system call.
   void ring();

   uint32_t size() const;
   // The number of records that the table may hold.
   uint32_t capacity() const;
   const Layout& layout() const;
   const Mox::String& path() const;
   uint64_t instanceId() const;
   // The number of changes ever made to the table; grows by one a put or remove.
   uint64_t sequence() const;
   const AttachReport& attachReport() const;

   // Checks every record and the whole index. Takes milliseconds per 100,000.
   Sweep verify() const;

   // Do the file names still lead to this table? Three system calls. Always true
   // after removeFiles().
   bool filesStand() const;
   // Makes removed or replaced files anew, with all records; readers move there by
   // themselves. Does nothing when no file is missing. The directory must exist.
   // Throws SecondWriterError when another process has become the writer at the
   // path: no reader sees this writer's records then, and the process should end.
   // Throws CreateError when the system refuses; try again later. REQUIRES: no
   // reservations.
   void restoreFiles();

   // Retires the table: marks it, then removes its files, those of a shared seat
   // excepted. Readers find it absent;
   // without the mark they would keep the table. The writer stays usable, unseen,
   // until destroyed. A second call does nothing.
   void removeFiles();

 private:
   friend class Reservation;
   friend class TableCursor;
   std::unique_ptr<Detail::WriterTable> table_;
};

// Free memory in a table, to build a record in; commit() makes it the key's record.
// Destruction frees the memory. Must not outlive its writer.
class PIMSM_API Reservation {
 public:
   Reservation( Reservation&& other ) noexcept;
   Reservation& operator=( Reservation&& ) = delete;
   ~Reservation();

   // recordSize bytes, aligned to 16.
   // Null after commit() or abandon().
   void* record() const { return record_; }

   // As TableWriter::put(), with the same exceptions, which free the memory.
   Position commit( Position hint = noPosition );
   void abandon();

 private:
   friend class TableWriter;
   Reservation( Detail::WriterTable& table, uint32_t slot, void* record )
      : table_( &table ), slot_( slot ), record_( record ) {}

   Detail::WriterTable* table_;
   uint32_t slot_;
   void* record_;
};

}
