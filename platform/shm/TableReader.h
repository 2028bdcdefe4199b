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

   // Attaches to the table if it exists; a missing table is no error. Throws
   // Mox::RangeError on a bad layout, and CreateError when the system refuses for
   // another reason than absence (permission, memory).
   // `seat` is the base of the bell's name where the writer's tables share one. The
   // layout may be shared with other tables. REQUIRES: not null.
   TableReader( const Mox::String& path, const Layout& layout )
      : TableReader( path, std::make_shared<const Layout>( layout ), path ) {}
   TableReader( const Mox::String& path, std::shared_ptr<const Layout> layout,
                const Mox::String& seat );
   ~TableReader();
   TableReader( const TableReader& ) = delete;
   TableReader& operator=( const TableReader& ) = delete;

   // Attaches to the table now at the path; true when the state or the instance has
   // changed. Costs one stat when neither has. Do not call it beside a
   // TableFollower, which polls its reader itself. Throws CreateError. A table that
   // the system refuses to map reads as readerDamaged, and the next poll tries
   // again. A table is absent once its writer has retired it
   // (TableWriter::removeFiles). When files vanish otherwise, the reader stays
   // attached to the last table, and problem() says so.
   bool poll();

   ReaderState state() const;
   // In readerMismatch and readerDamaged the cause, with both values; otherwise the
   // last damaged record. May be empty.
   const Mox::String& problem() const;
   // The header value that did not fit. Only in readerMismatch and readerDamaged;
   // still the former one when poll() threw.
   LayoutError::Mismatch mismatch() const;
   bool writerAlive() const;

   // With `verifying`, every record that is read, also by a follower, is checked by
   // its checksum and place. Otherwise only its index word and slot are compared,
   // and verify() checks the rest. False at first. REQUIRES: no follower yet.
   void verifyingIs( bool verifying );

   // Copies the key's record (recordSize bytes) to `out`, which is unspecified
   // unless found. A standing key is never reported as absent: without a table the
   // answer is absent, in readerMismatch and readerDamaged it is damaged.
   // `position`, when not null, gets a found key's position.
   Lookup lookup( const void* key, void* out, Position* position = nullptr ) const;

   struct LookupItem {
      const void* key = nullptr;
      void* out = nullptr;
      Lookup result = lookupAbsent;
   };
   // Looks up many keys as lookup() does, and fetches the needed memory ahead.
   void lookup( std::span<LookupItem> items ) const;

   // The record that stands at the position, whatever its key; absent if none.
   Lookup at( Position position, void* out ) const;

   // Visits the records in order of positions, starting after `after`, until the
   // visitor returns false or the table ends. Returns the last position visited, to
   // go on from; noPosition when the end was reached. Records that stand throughout
   // are met once. The record's bytes are a copy that lives during the call.
   // Damaged and busy records are counted and skipped. TableWalk.h visits them in the
   // order of their writing, which is better where something is built of them.
   using Visitor = std::function<bool( Position position, const void* record )>;
   Position visit( const Visitor& visitor, Position after = noPosition ) const;

   // Where to resume a visit when only a key was kept, as visit( visitor,
   // resumeBefore( key ) ). As in TableWriter, but the key itself comes again.
   Position resumeBefore( const void* key ) const;

   // Checks the checksum and index place of the key's record.
   Lookup verify( const void* key ) const;

   // Null or zero without a table. The capacity is what the table may grow to.
   uint32_t capacity() const;
   uint64_t instanceId() const;
   uint64_t sequence() const;  // changes published so far

   const Mox::String& path() const;
   Mox::String bell() const;  // the file that the writer rings
   const Layout& layout() const;
   const Counters& counters() const;

 private:
   friend class TableFollower;
   friend class TableWalk;
   std::unique_ptr<Detail::ReaderTable> table_;
};

}
