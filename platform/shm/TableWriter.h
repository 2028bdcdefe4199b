// The one writer of a table of fixed-size records in shared memory.
//
// The table lives in a file that outlives the writer: opening it again finds the
// records that were there, whole, whatever killed the former writer. Readers in
// other processes see each put and remove at once and as a whole; they hear of it
// at the next ring().
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

namespace Brane {

namespace Detail {
class WriterTable;
}

// What tests inject and special tables ask for; the defaults suit everybody else.
struct WriterOptions {
   // Of a new file's hash; random when absent.
   std::optional<std::array<uint64_t, 2>> seed;
   // The running boot; the kernel's when empty. At most 39 bytes.
   Mox::String bootId;
   // Length of the change journal, a power of two; by the capacity when 0.
   uint32_t journalEntries = 0;
   // Accept the all-zero key as a key like any other.
   bool zeroKey = false;
   // Sequence that a new file starts from.
   uint64_t firstSequence = 0;
   // What a record begins as that is taken over from another layout: the fields that
   // were not in it keep this. recordSize bytes, or empty: zeros.
   std::vector<std::byte> fresh;
};

// Result of a verifying sweep.
struct Sweep {
   uint32_t verified = 0;  // records whose checksum and place in the index hold
   uint32_t damaged = 0;
   std::vector<Mox::String> texts;  // one line a damage, at most 32
};

class Reservation;

class PIMSM_API TableWriter {
 public:
   // Creates the table, or takes it over with what it holds; `capacity` is raised
   // to the number of survivors. The path's directory must exist. Throws
   // SecondWriterError, CreateError, Mox::RangeError (layout, options).
   TableWriter( const Mox::String& path, const Layout& layout, uint32_t capacity,
                const WriterOptions& options = {} );
   ~TableWriter();
   TableWriter( const TableWriter& ) = delete;
   TableWriter& operator=( const TableWriter& ) = delete;

   // Writes or replaces the record under its key and returns the key's position.
   // `hint` is a position returned for this key before; a stale one costs time
   // only. Throws TableFullError, ProbeLimitError, CorruptionError, Mox::RangeError
   // (zero key); the table is then unchanged.
   Position put( const void* record, Position hint = noPosition );

   // Many records at once, each as by put(), with the memory they need fetched
   // ahead. `position` is hint and result. Stops with put()'s exception at the
   // first that fails: items before it are written, itself and later ones are not.
   struct PutItem {
      const void* record = nullptr;
      Position position = noPosition;
   };
   void put( std::span<PutItem> items );

   // Writing in place: free memory for one record, not zeroed; see Reservation.
   // REQUIRES: at most 16 reservations at a time.
   Reservation reserve();

   // Removes the key's record. False when there is none. `removed`, when not null,
   // gets a copy of the record (recordSize bytes).
   bool remove( const void* key, void* removed = nullptr,
                Position hint = noPosition );

   // The record in the table, null when there is none; valid until the next put or
   // remove of any key.
   const void* find( const void* key, Position hint = noPosition ) const;
   const void* at( Position position ) const;  // null: nothing stands there

   // Iteration in order of positions. Records put meanwhile may or may not be met;
   // those that stand throughout are met once. From noPosition: the first.
   // noPosition at the end.
   Position next( Position after = noPosition ) const;
   // Where to resume when only a key was kept: its position while it stands, else a
   // place at or before the one it had. Nothing is missed; a few records may come
   // again. The result may stand empty: look with at(), go on with next().
   Position positionAtOrBefore( const void* key ) const;

   // Tells readers that something has changed since the last ring; nothing when
   // nothing has. Once a batch, never once a record: it is a system call.
   void ring();

   uint32_t size() const;
   uint32_t capacity() const;
   const Layout& layout() const;
   const Mox::String& path() const;
   uint64_t instanceId() const;
   // The number of changes ever made to the table; grows by one a put or remove.
   uint64_t sequence() const;
   const AttachReport& attachReport() const;

   // Checks every record and the whole index. Takes milliseconds per 100,000.
   Sweep verify() const;

   // Do the table's files still lead to it? Three system calls. True after
   // removeFiles().
   bool filesStand() const;
   // Makes those files anew that somebody took away or replaced, with all that the table
   // holds; readers move there by themselves. Nothing where all stand. The directory
   // must exist. Throws SecondWriterError where another process has become the writer at
   // the path: what is written here is seen by nobody then, and the process should end.
   // Throws CreateError where the system refuses; try again later.
   // REQUIRES: no reservations.
   void restoreFiles();

   // Retires the table: marks it, then removes its files. Readers find it absent; files
   // that vanish without the mark change nothing for them. The writer itself stays
   // usable, unseen, until destroyed. Once more: nothing.
   void removeFiles();

 private:
   friend class Reservation;
   std::unique_ptr<Detail::WriterTable> table_;
};

// Free memory in a table, to build a record in; commit() makes it the key's record.
// Going out of scope gives the memory back. Must not outlive its writer.
class PIMSM_API Reservation {
 public:
   Reservation( Reservation&& other ) noexcept;
   Reservation& operator=( Reservation&& ) = delete;
   ~Reservation();

   // recordSize bytes, aligned to 16.
   // Null after commit() or abandon().
   void* record() const { return record_; }

   // As TableWriter::put(), also in what it throws; the memory is given back then.
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
