// A reader's view of a table that another process writes.
//
// The mapping is read-only and nothing read from it is trusted: a reader neither
// waits for the writer, dead or alive, nor harms it, and every loop is bounded.
// Records come out as copies that were whole at one moment. Any number of readers;
// each belongs to one thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

#include "platform/base/Enum.h"
#include "platform/shm/Error.h"
#include "platform/shm/Layout.h"

namespace Brane {

namespace Detail {
class ReaderTable;
}

#define PIMSM_READER_STATES( V )                                            \
   V( readerAbsent )   /* no table there, or none any more */               \
   V( readerAttached ) /* look-ups work */                                  \
   V( readerMismatch ) /* a sound table of another record: see problem() */ \
   V( readerDamaged )  /* no usable table there: see problem() */
MOX_ENUM( ReaderState, PIMSM_READER_STATES )
MOX_ENUM_TEXT( ReaderState, PIMSM_READER_STATES )

#define PIMSM_LOOKUPS( V )                                           \
   V( lookupFound )                                                  \
   V( lookupAbsent )                                                 \
   V( lookupBusy )    /* rewritten faster than it could be copied */ \
   V( lookupDamaged ) /* what stands there contradicts itself */
MOX_ENUM( Lookup, PIMSM_LOOKUPS )
MOX_ENUM_TEXT( Lookup, PIMSM_LOOKUPS )

class TableFollower;

class PIMSM_API TableReader {
 public:
   // Counts since construction.
   struct Counters {
      uint64_t verified = 0;  // records copied and found whole
      uint64_t retried = 0;   // copies that the writer overtook
      uint64_t busy = 0;
      uint64_t damaged = 0;  // records, each once
   };

   // Attaches if the table is there; a missing one is no error.
   // Throws Mox::RangeError on a bad layout, CreateError where the system refuses
   // (permission, memory) for another reason than absence.
   TableReader( const Mox::String& path, const Layout& layout );
   ~TableReader();
   TableReader( const TableReader& ) = delete;
   TableReader& operator=( const TableReader& ) = delete;

   // Attaches to what stands at the path now; true when the state or the instance
   // has changed. Cheap (one stat) when neither has. A TableFollower polls for
   // itself; do not poll its reader beside it. Throws CreateError; a table that the
   // system refused to map reads as readerDamaged, and the next poll tries again.
   // A table is absent once its writer has retired it (TableWriter::removeFiles). Files
   // that vanish otherwise leave the reader attached to what stood there last, and
   // problem() says so.
   bool poll();

   ReaderState state() const;
   // What is wrong in readerMismatch and readerDamaged, with both values; the last
   // damaged record otherwise; may be empty.
   const Mox::String& problem() const;
   // Which header value it was. Only in readerMismatch and readerDamaged; of the
   // last one before, where poll() threw.
   LayoutError::Mismatch mismatch() const;
   bool writerAlive() const;

   // Is each record, also one that a follower tells, judged by its checksum and place
   // when it is read? Otherwise by what its index word and slot say of each other, and
   // the rest is left to verify(). False at first. REQUIRES: no follower yet.
   void verifyingIs( bool verifying );

   // Copies the key's record (recordSize bytes) to `out`; it is left unspecified
   // unless found. A standing key is never reported as absent: without a table the
   // answer is absent, in readerMismatch and readerDamaged it is damaged.
   // `position`, when not null, gets the key's position when found.
   Lookup lookup( const void* key, void* out, Position* position = nullptr ) const;

   struct LookupItem {
      const void* key = nullptr;
      void* out = nullptr;
      Lookup result = lookupAbsent;
   };
   // Many keys, each as by lookup(), with the memory they need fetched ahead.
   void lookup( std::span<LookupItem> items ) const;

   // The record that stands at the position, whatever its key; absent if none.
   Lookup at( Position position, void* out ) const;

   // Visits the records in order of positions, starting after `after`, until the
   // visitor says false or the table ends. Returns the last position visited, to
   // go on from; noPosition when the end was reached. Records standing throughout
   // are met once. The record's bytes are a copy that lives during the call. What
   // is damaged or busy is counted and left out.
   // `ahead`, when given, is told the keys that are to come, up to 32 records
   // early, to fetch memory that the visitor will need: a hint, for a record that may
   // change or go before its turn. It must not use this reader.
   using Visitor = std::function<bool( Position position, const void* record )>;
   using Ahead = std::function<void( const void* key )>;
   Position visit( const Visitor& visitor, Position after = noPosition,
                   const Ahead& ahead = {} ) const;

   // Where to resume a visit when only a key was kept; as in TableWriter, but to be
   // used as visit( visitor, resumeBefore( key ) ): the key itself comes again.
   Position resumeBefore( const void* key ) const;

   // Checks checksum and index place of the record under the key.
   Lookup verify( const void* key ) const;

   // Null/zero without a table.
   uint32_t capacity() const;
   uint64_t instanceId() const;
   uint64_t sequence() const;  // changes published so far

   const Mox::String& path() const;
   const Layout& layout() const;
   const Counters& counters() const;

 private:
   friend class TableFollower;
   std::unique_ptr<Detail::ReaderTable> table_;
};

}
